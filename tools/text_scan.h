// Reading lines, words, numbers and addresses out of text that a person wrote.
//
// The functions take views into the caller's text and never allocate; a text may hold any bytes. Readers
// report what they refuse as a t_text_error, which prints as "FILE:LINE: reason".
#pragma once

#include "tools/value_ranges.h"

#include <cstdint>
#include <string>
#include <string_view>

struct t_text_error {
    std::string file;
    uint32_t line;  // from 1; 0 when the reason concerns the whole file
    std::string reason;
};

// "FILE:LINE: reason", or "FILE: reason".
std::string text_error_print(const t_text_error &error);

// Takes the next line, without its end ('\n' or "\r\n"), off the front of *p_rest. False at the end of the
// text.
bool text_next_line(std::string_view *p_rest, std::string_view *p_line);

// Takes the next word, between blanks and tabs, off the front of *p_rest. False when only blanks are left.
bool text_next_word(std::string_view *p_rest, std::string_view *p_word);

// Takes what stands before the next separator off the front of *p_rest; parts may be empty. False once the
// last part has been taken.
bool text_next_part(std::string_view *p_rest, char separator, std::string_view *p_part);

// The whole text as a decimal number without sign. False if it is none or does not fit into 64 bits.
bool text_number(std::string_view text, uint64_t *p_value);

// A decimal number, or a hexadecimal one after "0x".
bool text_number_or_hex(std::string_view text, uint64_t *p_value);

// An IPv4 address as a dotted quad, into host order. On false *p_reason tells what is wrong.
bool text_ipv4(std::string_view text, uint32_t *p_address, std::string *p_reason);

// A prefix "address/length". Bits behind the length are dropped; length 0 is the whole range.
bool text_prefix(std::string_view text, t_value_range *p_range, std::string *p_reason);

// The text in quotes, cut to a length that suits a message and without unprintable bytes.
std::string text_quote(std::string_view text);

// A dotted quad.
std::string text_ipv4_print(uint32_t address);
