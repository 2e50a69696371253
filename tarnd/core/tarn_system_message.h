// Messages that operators see, in syslog, under one format:
//
//   %Lumora-<host>-<program>-<severity number>-<severity word>-<code>: <text>
#pragma once

// Codes, each with its severity and text.
inline constexpr int TARN_MSG_STARTING = 1100001;
inline constexpr int TARN_MSG_POLICY_NO_MEMORY = 1100002;
inline constexpr int TARN_MSG_ACL_NO_MEMORY = 1100003;
inline constexpr int TARN_MSG_POLICY_REPROGRAMMED = 1100004;
inline constexpr int TARN_MSG_ACL_REPROGRAMMED = 1100005;

// Writes the message of a code; the arguments fill the placeholders of its text (names of policy and list).
void tarn_system_message(int code, ...);
