// The standard modules that NETCONF needs beside the model, with the features that are served.
//
// To be loaded into a context before the model is indexed, whether NETCONF is switched on or not: the rights'
// rules are configuration of one of them.
#pragma once

#include <string>

struct ly_ctx;

// Adds ietf-netconf (candidate, confirmed-commit, rollback-on-error, validate, xpath), -monitoring, -acm,
// -with-defaults, notifications and nc-notifications to a context that knows their folder. On failure the
// error names module and reason.
[[nodiscard]] bool netconf_modules_load(ly_ctx *p_context, std::string *p_error);
