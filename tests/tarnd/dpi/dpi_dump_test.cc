// The dumps, in a session and against the stored texts.
#include "tests/tarnd/dpi/dpi_world.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "common/cli_print.h"
#include "common/lum_log.h"
#include "lconfd/lconfd_api.h"
#include "platform/confd/confd_maapi.h"
#include "platform/confd/double/confd_double.h"

static constexpr int user_session = 42;

__attribute__((format(printf, 3, 0))) static void print_to_session(t_lconfd_context *ctx, int usid,
                                                                   const char *format, va_list args)
{
    maapi_cli_vprintf(ctx->maapi_socket, usid, format, args);
}

using f_command = int (*)(confd_user_info *uinfo, char *path, int argc, char **argv);

static std::string command_text(f_command command, t_lconfd_context *p_context, int usid)
{
    confd_daemon_ctx daemon = {nullptr, p_context};
    confd_user_info user = {usid, {&daemon}};
    confd_double_reset();
    cli_print_register(print_to_session);
    EXPECT_EQ(command(&user, nullptr, 0, nullptr), 0);
    cli_print_register(nullptr);
    return confd_double_cli_text(usid);
}

static std::string stored_text(const std::string &name)
{
    std::ifstream file("tests/tarnd/dpi/golden/" + name + ".txt");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Hits of traffic without a class, of an application without a family, of an id in no bundle.
static void fill(DpiWorld *p_world)
{
    p_world->load("small_bundle.txt");
    p_world->hits[1] = 100;
    p_world->hits[17] = 3;
    p_world->hits[18] = 4;
    p_world->hits[3400] = 4000000000;
    p_world->mapping[18] = E_TARN_DPI_WEB;
    p_world->tarn.dpi = 1;
    p_world->tarn.dpi_ref = 3;
    p_world->knob = 2;
    snprintf(p_world->tarn.dpi_version, sizeof(p_world->tarn.dpi_version), "Small 2.5");
    dpi_world_log();
}

TEST(DpiDumpGolden, TheFourDumps)
{
    static const struct {
        const char *name;
        f_command command;
    } cases[] = {
        {"protocol_list", tarn_dpi_dump_protocol_list},
        {"family_mapping", tarn_dpi_dump_protocol_family_mapping},
        {"hits", tarn_dpi_dump_protocol_hits},
        {"configuration", tarn_dpi_dump_configuration},
    };
    DpiWorld world;
    ASSERT_NO_FATAL_FAILURE(fill(&world));
    t_lconfd_context context = {.module_data = {.opaque_p = &world.tarn}, .maapi_socket = 3};
    for (const auto &c : cases) {
        EXPECT_EQ(command_text(c.command, &context, user_session), stored_text(c.name)) << c.name;
        EXPECT_EQ(command_text(c.command, nullptr, user_session), "") << c.name << " without a context";
        EXPECT_EQ(command_text(c.command, &context, 0), "") << c.name << " without a session";
    }
    context.module_data.opaque_p = nullptr;
    EXPECT_EQ(command_text(tarn_dpi_dump_configuration, &context, user_session),
              "DPI state                 : 2\n");
}

TEST(DpiDump, TheProtocolListFailsInsideAndSpeaksUnderItsTopic)
{
    DpiWorld world;
    ASSERT_NO_FATAL_FAILURE(fill(&world));
    t_lconfd_context context = {.module_data = {.opaque_p = &world.tarn}, .maapi_socket = 3};
    g_tarn_debug_flags = TARN_DEBUG_DPI;
    command_text(tarn_dpi_dump_protocol_list, &context, user_session);
    g_tarn_debug_flags = TARN_DEBUG_NONE;
    std::vector<std::string> log = dpi_world_log();
    ASSERT_EQ(log.size(), 9u) << "four applications and their five attributes";
    EXPECT_EQ(log[0] + '/' + log[1] + '/' + log[2], "\troot for: /      host/      uri");
    world.failing = "foreach";
    EXPECT_EQ(command_text(tarn_dpi_dump_protocol_list, &context, user_session), "");
    EXPECT_EQ(dpi_world_log()[0], "Error when getting the protocol list - module not initialized");
}
