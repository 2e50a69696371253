// Answers of the lab's daemons.
//
// An answer is an object with "ok"; on false "error" tells why, on true the other members depend on the
// request. It goes out as one line of JSON or as text.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

// {"ok": false, "error": reason}
nlohmann::ordered_json lab_answer_refusal(const std::string &reason);

// {"ok": true}, to add members to.
nlohmann::ordered_json lab_answer_done();

// On one line, without a line end. Bytes that are no UTF-8 are replaced.
std::string lab_answer_line(const nlohmann::ordered_json &answer);

// In lines of "name: value", without "ok" and "request"; what repeats is a table. Ends with a line end.
std::string lab_answer_text(const nlohmann::ordered_json &answer);
