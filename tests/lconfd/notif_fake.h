// Stands in for the framework where notifications leave: keeps what was sent, and says what a test wants.
#pragma once

#include "lconfd/lconfd_notif.h"
#include "platform/confd/confd_dp.h"

#include <chrono>
#include <string>
#include <vector>

struct confd_notification_ctx {
    int id;
};

// One sending. Texts: "stream 1 NAME a=1 b=2", "trap 2 GROUP NAME eventTime=... x=1" with the context's id.
struct t_sent {
    std::string text;
    std::chrono::steady_clock::time_point when;
};

std::vector<t_sent> fake_sent();  // so far
std::vector<std::string> fake_texts();
void fake_reset();
void fake_phase(int phase);          // below 0: cdb_get_phase fails
void fake_fail_sending(bool fails);  // of the stream

// A notification with these fields behind severity, host name and address.
struct t_notification {
    explicit t_notification(int32_t severity, uint32_t tag = 0x73e916a8, uint32_t ns = 0x25640284);
    void add(uint32_t tag, confd_value_t value, uint32_t ns = 0);
    void add_text(uint32_t tag, const char *text);
    void end();

    std::vector<confd_tag_value_t> values;
};

confd_value_t fake_value(confd_vtype type, uint32_t number);
