#include "lab/sysmgrd/daemon_config.h"

#include "common/lum_util.h"

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

using nlohmann::json;

static void require(bool holds, const std::string &reason)
{
    if (!holds)
        throw std::runtime_error(reason);
}

static void members_check(const json &object, const std::set<std::string> &known, const std::string &what)
{
    require(object.is_object(), what + " is no object");
    for (const auto &[name, value] : object.items())
        require(known.contains(name), what + " has the unknown member " + name);
}

static uint32_t module_read(const json &value, const std::string &name)
{
    uint64_t module = 0;
    if (value.is_string())
        module = lum_util_module_name_to_id(value.get<std::string>().c_str());
    else if (value.is_number_unsigned())
        module = value.get<uint64_t>();
    require(module > 0 && module < LUM_MODULE_MAX, name + ": \"module\" is no module");
    return static_cast<uint32_t>(module);
}

static int signal_read(const std::string &text, const std::string &name)
{
    if (text == "USR2")
        return SIGUSR2;
    require(text == "TERM" || text == "INT", name + ": \"stop_signal\" is none of USR2, TERM, INT");
    return text == "TERM" ? SIGTERM : SIGINT;
}

static t_daemon_spec spec_read(const json &object)
{
    members_check(object, {"name", "module", "command", "hello", "stop_signal", "output", "restart_with"},
                  "a daemon");
    t_daemon_spec spec = {};
    spec.name = object.value("name", "");
    bool is_plain = !spec.name.empty() && spec.name.find('/') == std::string::npos && spec.name.size() < 32;
    require(is_plain, "a daemon's \"name\" is missing or no file name");
    spec.has_hello = object.value("hello", true);
    require((object.contains("module") || !spec.has_hello) && object.contains("command"),
            spec.name + ": \"module\" or \"command\" is missing");
    spec.module = object.contains("module") ? module_read(object["module"], spec.name) : 0;
    spec.command = object["command"].get<std::vector<std::string>>();
    require(!spec.command.empty() && !spec.command[0].empty(), spec.name + ": \"command\" is empty");
    spec.stop_signal = signal_read(object.value("stop_signal", "USR2"), spec.name);
    spec.output = object.value("output", "");
    spec.restart_with = object.value("restart_with", std::vector<std::string>());
    return spec;
}

static void followed_check(const std::vector<t_daemon_spec> &specs)
{
    for (const t_daemon_spec &spec : specs) {
        for (const std::string &name : spec.restart_with) {
            bool is_other = name != spec.name &&
                            std::any_of(specs.begin(), specs.end(),
                                        [&name](const t_daemon_spec &other) { return other.name == name; });
            require(is_other, spec.name + ": \"restart_with\" names " + name + ", which is no other daemon");
        }
    }
}

static std::vector<t_daemon_spec> specs_read(const std::string &text)
{
    json config = json::parse(text);
    members_check(config, {"daemons"}, "the configuration");
    std::vector<t_daemon_spec> specs;
    for (const json &object : config.value("daemons", json::array())) {
        t_daemon_spec spec = spec_read(object);
        bool is_new = std::none_of(specs.begin(), specs.end(), [&spec](const t_daemon_spec &other) {
            return other.name == spec.name || (spec.module != 0 && other.module == spec.module);
        });
        require(is_new, spec.name + ": its name or module is another's, too");
        specs.push_back(std::move(spec));
    }
    followed_check(specs);
    return specs;
}

bool daemon_config_parse(const std::string &text, std::vector<t_daemon_spec> *p_specs, std::string *p_error)
{
    try {
        *p_specs = specs_read(text);
        return true;
    } catch (const std::exception &error) {
        *p_error = error.what();
        return false;
    }
}
