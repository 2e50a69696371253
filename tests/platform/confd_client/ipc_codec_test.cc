// Bytes on the wire: values, frames, messages, paths and the proof of the access file.
#include "platform/confd/ipc/ipc_auth.h"
#include "platform/confd/ipc/ipc_frame.h"
#include "platform/confd/ipc/ipc_messages.h"
#include "platform/confd/ipc/ipc_path.h"

#include <arpa/inet.h>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

static std::string hex(std::span<const uint8_t> bytes)
{
    std::string text;
    char digits[3];
    for (uint8_t byte : bytes) {
        snprintf(digits, sizeof(digits), "%02x", byte);
        text += digits;
    }
    return text;
}

template <typename Fill>
static IpcValue value_of(confd_vtype type, Fill fill)
{
    IpcValue value;
    value.v.type = type;
    fill(&value.v);
    return value;
}

struct t_value_case {
    const char *bytes;
    IpcValue value;
};

// One of each type with its bytes.
static std::vector<t_value_case> value_cases()
{
    auto bytes_value = [](confd_value_t *v) {
        *v = {v->type, IpcValue::text(std::string_view("a\0b", 3)).release().val};
    };
    IpcValue path_step = IpcValue::tag(C_XMLTAG, 7, 8);
    IpcKeypath path = {{{IpcValue::text("k")}, {path_step}}};
    confd_hkeypath_t path_view = {};
    EXPECT_TRUE(ipc_keypath_view(path, &path_view));
    confd_value_t reference = {C_OBJECTREF, {}};
    reference.val.hkp = &path_view;
    confd_value_t elements[1] = {path_step.v};
    confd_value_t list = {C_LIST, {}};
    list.val.list = {1, elements};
    confd_snmp_oid oid = {{1, 3, 6}, 3};
    confd_value_t oid_value = {C_OID, {}};
    oid_value.val.oidp = &oid;
    confd_value_t qname = {C_QNAME, {}};
    unsigned char letters[] = "pn";
    qname.val.qname = {{1, letters}, {1, letters + 1}};
    std::vector<t_value_case> cases = {
        {"01", IpcValue()},
        {"020000000700000008", path_step},
        {"03fffffffe", value_of(C_SYMBOL, [](confd_value_t *v) { v->val.symbol = 0xfffffffe; })},
        {"0500000003610062", value_of(C_BUF, bytes_value)},
        {"0680", value_of(C_INT8, [](confd_value_t *v) { v->val.i8 = -128; })},
        {"07ff7f", value_of(C_INT16, [](confd_value_t *v) { v->val.i16 = -129; })},
        {"08fffffffe", value_of(C_INT32, [](confd_value_t *v) { v->val.i32 = -2; })},
        {"098000000000000000", value_of(C_INT64, [](confd_value_t *v) { v->val.i64 = INT64_MIN; })},
        {"0aff", value_of(C_UINT8, [](confd_value_t *v) { v->val.u8 = 255; })},
        {"0b0102", value_of(C_UINT16, [](confd_value_t *v) { v->val.u16 = 0x0102; })},
        {"0c01020304", value_of(C_UINT32, [](confd_value_t *v) { v->val.u32 = 0x01020304; })},
        {"0d0102030405060708", value_of(C_UINT64, [](confd_value_t *v) { v->val.u64 = 0x0102030405060708; })},
        {"0e3ff8000000000000", value_of(C_DOUBLE, [](confd_value_t *v) { v->val.d = 1.5; })},
        {"0f0a000001",
         value_of(C_IPV4, [](confd_value_t *v) { inet_pton(AF_INET, "10.0.0.1", &v->val.ip); })},
        {"1020010db8000000000000000000000001",
         value_of(C_IPV6, [](confd_value_t *v) { inet_pton(AF_INET6, "2001:db8::1", &v->val.ip6); })},
        {"1101", value_of(C_BOOL, [](confd_value_t *v) { v->val.boolean = 1; })},
        {"120000000170000000016e", IpcValue(qname)},
        {"1307ea0b150c1e3b0001e240ff00",
         value_of(C_DATETIME,
                  [](confd_value_t *v) { v->val.datetime = {2026, 11, 21, 12, 30, 59, 123456, -1, 0}; })},
        {"1cffffffff", value_of(C_ENUM_VALUE, [](confd_value_t *v) { v->val.enumvalue = -1; })},
        {"1d00000007", value_of(C_BIT32, [](confd_value_t *v) { v->val.b32 = 7; })},
        {"1e8000000000000001", value_of(C_BIT64, [](confd_value_t *v) { v->val.b64 = 1ull << 63 | 1; })},
        {"1f00000001020000000700000008", IpcValue(list)},
        {"200000000700000008", IpcValue::tag(C_XMLBEGIN, 7, 8)},
        {"210000000700000008", IpcValue::tag(C_XMLEND, 7, 8)},
        {"22020105000000016b01020000000700000008", IpcValue(reference)},
        {"2603000000010000000300000006", IpcValue(oid_value)},
        {"2700000003610062", value_of(C_BINARY, bytes_value)},
        {"280a00000008", value_of(C_IPV4PREFIX,
                                  [](confd_value_t *v) {
                                      inet_pton(AF_INET, "10.0.0.0", &v->val.ipv4prefix.ip);
                                      v->val.ipv4prefix.len = 8;
                                  })},
        {"2920010db800000000000000000000000020", value_of(C_IPV6PREFIX,
                                                          [](confd_value_t *v) {
                                                              inet_pton(AF_INET6,
                                                                        "2001:db8::", &v->val.ipv6prefix.ip6);
                                                              v->val.ipv6prefix.len = 32;
                                                          })},
    };
    return cases;
}

TEST(IpcValueGolden, EachTypeHasItsBytesAndComesBackFromThem)
{
    for (const t_value_case &c : value_cases()) {
        IpcWriter writer;
        ipc_value_write(&writer, c.value.v);
        std::vector<uint8_t> bytes = writer.take();
        EXPECT_EQ(hex(bytes), c.bytes);
        IpcReader reader(bytes);
        EXPECT_EQ(ipc_value_read(&reader), c.value) << c.bytes;
        EXPECT_TRUE(reader.at_end() && !reader.failed()) << c.bytes;
        for (size_t size = 0; size < bytes.size(); size++) {
            IpcReader cut(std::span<const uint8_t>(bytes).first(size));
            ipc_value_read(&cut);
            EXPECT_TRUE(cut.failed()) << c.bytes << " cut to " << size;
        }
    }
}

TEST(IpcValueGolden, OutOfBoundsIsRefused)
{
    static const struct {
        const char *what;
        std::vector<uint8_t> bytes;
    } cases[] = {
        {"no type", {0x00}},
        {"terminated text", {0x04, 0, 0, 0, 0}},
        {"type that has no form", {0x14, 0, 0, 0, 0}},
        {"type beyond the last", {0xff, 0, 0, 0, 0}},
        {"boolean 2", {0x11, 2}},
        {"prefix length 33", {0x28, 0, 0, 0, 0, 33}},
        {"list in a list", {0x1f, 0, 0, 0, 1, 0x1f, 0, 0, 0, 0}},
        {"nothing in a list", {0x1f, 0, 0, 0, 1, 0x01, 0}},
        {"more elements than bytes", {0x1f, 0xff, 0xff, 0xff, 0xff, 0x11, 0}},
        {"text longer than the rest", {0x05, 0xff, 0xff, 0xff, 0xff, 'a'}},
        {"path of 33 elements", {0x22, 33, 1, 0x11, 0}},
        {"path with 9 keys", {0x22, 1, 9, 0x11, 0}},
        {"path with an empty element", {0x22, 1, 0}},
        {"paths in paths without end", {0x22, 1, 1, 0x22, 1, 1, 0x22, 1, 1, 0x22, 1, 1, 0x22, 0}},
        {"object identifier of 129", {0x26, 129, 0, 0, 0, 1}},
    };
    for (const auto &c : cases) {
        IpcReader reader(c.bytes);
        ipc_value_read(&reader);
        EXPECT_TRUE(reader.failed()) << c.what;
    }
    confd_value_t text = {C_STR, {}};
    text.val.c_s = "a";
    EXPECT_EQ(IpcValue(text), IpcValue::text("a"));
}

TEST(IpcFrameGolden, BytesOfFrames)
{
    t_ipc_hello hello = {IPC_VERSION, IPC_CONN_WORKER, "tarnd", 9, 0, 0x1234};
    EXPECT_EQ(hex(ipc_frame_bytes({IPC_OP_HELLO, IPC_KIND_REQUEST, 1, 0, ipc_encode(hello)})),
              "00000026000101000000000100000000"
              "000000010200000005"
              "7461726e64"
              "000000090000000000001234");
    t_ipc_error error = {"no", 3};
    EXPECT_EQ(hex(ipc_frame_bytes(
                  {IPC_OP_CDB_GET, IPC_KIND_REPLY, 0x01020304, CONFD_ERR_NOEXISTS, ipc_encode(error)})),
              "0000001a010202000102030400000001"
              "000000026e6f"
              "0000000000000003");
    t_ipc_batch batch = {2, 2, {5, 6}};
    EXPECT_EQ(hex(ipc_frame_bytes({IPC_OP_SUB_BATCH, IPC_KIND_ONEWAY, 0, 0, ipc_encode(batch)})),
              "0000001d020203000000000000000000"
              "0200000002"
              "000000020000000500000006");
    t_ipc_diff_page page = {
        {{1, {{{IpcValue::tag(C_XMLTAG, 7, 8)}}}, {}, {}, {{{7, 0}, IpcValue::text("x")}}}}, 4};
    EXPECT_EQ(hex(ipc_encode(page)), "00000001"
                                     "01"
                                     "0101020000000700000008"
                                     "01"
                                     "01"
                                     "00000001"
                                     "0000000700000000"
                                     "050000000178"
                                     "0000000000000004");
}

TEST(IpcFrame, AssemblerTakesAnyPieces)
{
    std::vector<uint8_t> bytes;
    for (uint32_t id = 1; id <= 3; id++) {
        std::vector<uint8_t> one =
            ipc_frame_bytes({IPC_OP_CDB_GET, IPC_KIND_REQUEST, id, 0, ipc_encode(t_ipc_path{"/a"})});
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    for (size_t piece = 1; piece <= bytes.size(); piece++) {
        IpcAssembler assembler;
        t_ipc_frame frame;
        uint32_t count = 0;
        for (size_t at = 0; at < bytes.size(); at += piece) {
            assembler.feed(std::span<const uint8_t>(bytes).subspan(at, std::min(piece, bytes.size() - at)));
            while (assembler.next(&frame) == IPC_FRAME_OK)
                EXPECT_EQ(frame.id, ++count);
        }
        EXPECT_EQ(count, 3u) << "pieces of " << piece;
    }
}

TEST(IpcFrame, BadHeadersAreRefused)
{
    static const struct {
        const char *what;
        std::vector<uint8_t> header;
    } cases[] = {
        {"length below the header's", {0, 0, 0, 11, 1, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"length above the limit", {0, 0, 0x10, 1, 1, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"length of all ones", {0xff, 0xff, 0xff, 0xff, 1, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"unknown kind", {0, 0, 0, 12, 1, 2, 4, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"reserved byte", {0, 0, 0, 12, 1, 2, 1, 1, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"request without id", {0, 0, 0, 12, 1, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"one-way message with id", {0, 0, 0, 12, 1, 2, 3, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
        {"request with status", {0, 0, 0, 12, 1, 2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1}},
    };
    for (const auto &c : cases) {
        IpcAssembler assembler;
        t_ipc_frame frame;
        assembler.feed(c.header);
        EXPECT_EQ(assembler.next(&frame), IPC_FRAME_BAD) << c.what;
    }
}

TEST(IpcPath, Parsing)
{
    t_ipc_parsed_path path;
    ASSERT_TRUE(ipc_path_parse(R"(/m:policy/zone-pair{a "b {}\"\\" ""}/list[12]/x)", &path));
    EXPECT_TRUE(path.is_absolute);
    ASSERT_EQ(path.steps.size(), 4u);
    EXPECT_EQ(path.steps[0].prefix, "m");
    EXPECT_EQ(path.steps[0].name, "policy");
    EXPECT_EQ(path.steps[1].keys, (std::vector<std::string>{"a", "b {}\"\\", ""}));
    EXPECT_EQ(path.steps[2].index, 12u);
    EXPECT_TRUE(ipc_path_parse("/", &path) && path.is_absolute && path.steps.empty());
    EXPECT_TRUE(ipc_path_parse("pair-id", &path) && !path.is_absolute && path.steps.size() == 1);
    for (const char *p_bad :
         {"//",       "/a/",        "/a//b", "/a{",    "/a{}", "/a{b",   "/a{b}c",
          "/a{\"b}",  "/a{\"b\"c}", "/a[",   "/a[]",   "/a[1", "/a[-1]", "/a[4294967296]",
          "/a[1]{b}", "/:a",        "/m:",   "/m:n:a", "/a b", "/a}",    "/a{1 2 3 4 5 6 7 8 9}",
          "/a{b\\c}", "/a{\"b\\"})
        EXPECT_FALSE(ipc_path_parse(p_bad, &path)) << p_bad;
    for (const char *p_key : {"plain", "", "a b", "{}", "\"", "back\\slash", "a/b[c]:d"}) {
        ASSERT_TRUE(ipc_path_parse("/l{" + ipc_path_quote_key(p_key) + "}/x", &path)) << p_key;
        EXPECT_EQ(path.steps[0].keys, std::vector<std::string>{p_key});
    }
}

TEST(IpcAuth, ProofNeedsTheSecretAndTheChallenge)
{
    std::string challenge = ipc_auth_challenge();
    ASSERT_EQ(challenge.size(), IPC_CHALLENGE_SIZE);
    EXPECT_NE(challenge, ipc_auth_challenge());
    EXPECT_EQ(ipc_auth_proof("Hello world!", "saltstringsaltst"),
              "$5$rounds=1000$saltstringsaltst$cSv7nWzgUjd5.cVg4yn64CGOTkcQl1wXTNvW1OSLbZ0");
    std::string proof = ipc_auth_proof("secret", challenge);
    EXPECT_TRUE(ipc_auth_is_proven("secret", challenge, proof));
    EXPECT_FALSE(ipc_auth_is_proven("secret2", challenge, proof));
    EXPECT_FALSE(ipc_auth_is_proven("secret", ipc_auth_challenge(), proof));
    EXPECT_FALSE(ipc_auth_is_proven("secret", challenge, ""));
    EXPECT_EQ(ipc_auth_proof("secret", "short"), "");
    EXPECT_EQ(ipc_auth_proof("secret", "$aaaaaaaaaaaaaaa"), "");

    std::string path = testing::TempDir() + "/ipc_secret." + std::to_string(getpid());
    std::string secret = "unchanged";
    for (const auto &[content, wanted] : {std::pair<std::string, std::string>{"abc\nrest", "abc"},
                                          {"abc", "abc"},
                                          {std::string(256, 'x'), std::string(256, 'x')}}) {
        std::ofstream(path) << content;
        EXPECT_TRUE(ipc_auth_read_secret(path.c_str(), &secret) && secret == wanted);
    }
    for (const std::string &content : {std::string(), std::string("\nabc"), std::string(257, 'x')}) {
        std::ofstream(path) << content;
        EXPECT_FALSE(ipc_auth_read_secret(path.c_str(), &secret));
    }
    unlink(path.c_str());
    EXPECT_FALSE(ipc_auth_read_secret(path.c_str(), &secret));
}
