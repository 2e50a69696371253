// Requests in words and in JSON.
#include "lab/fp/fp_request.h"

#include "lab/fp/fp_fields.h"
#include "tests/lab/fp/frames.h"

#include <gtest/gtest.h>

TEST(FpRequestShortTest, WordsAndObjectsGiveTheSameRequests)
{
    struct t_case {
        const char *line;
        e_fp_request kind;
        bool json;
        uint32_t filter_id;
        const char *file;
        bool sidecar;
    };
    static const t_case cases[] = {
        {"load", FP_REQUEST_LOAD, false, 0, "", false},
        {"  stats\t--json ", FP_REQUEST_STATS, true, 0, "", false},
        {R"({"request": "stats"})", FP_REQUEST_STATS, true, 0, "", false},
        {"replay 7 /a.pcap", FP_REQUEST_REPLAY, false, 7, "/a.pcap", false},
        {"replay 7 \"/a \\\"b\\\\.pcap\" --sidecar", FP_REQUEST_REPLAY, false, 7, "/a \"b\\.pcap", true},
        {R"({"request": "replay", "file": "/a b", "filter": "0x7", "sidecar": true})", FP_REQUEST_REPLAY,
         true, 7, "/a b", true},
        {"classify -1", FP_REQUEST_CLASSIFY, false, 0xffffffff, "", false},
        {R"({"request": "classify", "filter": -1, "fields": {}})", FP_REQUEST_CLASSIFY, true, 0xffffffff, "",
         false},
    };
    for (const t_case &c : cases) {
        t_fp_request request = {};
        std::string error;
        ASSERT_TRUE(fp_request_parse(c.line, &request, &error)) << c.line << ": " << error;
        EXPECT_EQ(request.kind, c.kind) << c.line;
        EXPECT_EQ(request.json, c.json) << c.line;
        EXPECT_EQ(request.filter_id, c.filter_id) << c.line;
        EXPECT_EQ(request.file, c.file) << c.line;
        EXPECT_EQ(request.sidecar, c.sidecar) << c.line;
    }
}

TEST(FpRequestShortTest, FieldsByPlaceAndByName)
{
    static const char *const lines[] = {
        "classify 1 10.0.0.1 0xc0a80001 - 443 tcp len=1500 tcp-flags=0x12 plp=3",
        R"({"request": "classify", "filter": 1, "fields": {"src": "10.0.0.1", "dst": 3232235521, "dport": 443,
            "proto": "tcp", "len": 1500, "tcp-flags": 18, "plp": "3"}})",
    };
    t_fp_header want = fp_header_blank();
    want.values[tarn_ip_src_addr] = 0x0a000001;
    want.values[tarn_ip_dst_addr] = 0xc0a80001;
    want.values[tarn_ip_dst_port] = 443;
    want.values[tarn_ip_protocol] = 6;
    want.values[tarn_ip_pkt_len] = 1500;
    want.values[tarn_ip_tcp] = 0x12;
    want.values[tarn_ip_plp] = 3;
    for (const char *line : lines) {
        t_fp_request request = {};
        std::string error;
        ASSERT_TRUE(fp_request_parse(line, &request, &error)) << line << ": " << error;
        for (uint32_t type = 0; type < tarn_ip_field_type_max; type++)
            EXPECT_EQ(request.header.values[type], want.values[type]) << line << ", field " << type;
    }
}

TEST(FpRequestShortTest, PlacesInWordsAndInObjects)
{
    struct t_case {
        const char *line;
        e_fp_request kind;
        t_fp_place place;
    };
    static const t_case cases[] = {
        {"forward 10 ge0/1 in",
         FP_REQUEST_FORWARD,
         {10, "ge0/1", FP_INTERFACE_DIRECTION_IN, FP_SIDE_SERVICE, FP_FAMILY_IPV4}},
        {"forward 10 a=b out from=tunnel family=ipv6 - - - 53 udp",
         FP_REQUEST_FORWARD,
         {10, "a=b", FP_INTERFACE_DIRECTION_OUT, FP_SIDE_TUNNEL, FP_FAMILY_IPV6}},
        {R"({"request": "forward", "vpn": 10, "interface": "a b", "direction": "out", "from": "tunnel",
             "family": "ipv6", "fields": {"dport": 53}})",
         FP_REQUEST_FORWARD,
         {10, "a b", FP_INTERFACE_DIRECTION_OUT, FP_SIDE_TUNNEL, FP_FAMILY_IPV6}},
        {"replay --direction out --vpn 7 --interface ge0/1 --from tunnel /a.pcap",
         FP_REQUEST_REPLAY,
         {7, "ge0/1", FP_INTERFACE_DIRECTION_OUT, FP_SIDE_TUNNEL, FP_FAMILY_IPV4}},
        {R"({"request": "replay", "file": "/a.pcap", "vpn": 7, "interface": "x", "direction": "in"})",
         FP_REQUEST_REPLAY,
         {7, "x", FP_INTERFACE_DIRECTION_IN, FP_SIDE_SERVICE, FP_FAMILY_IPV4}},
    };
    for (const t_case &c : cases) {
        t_fp_request request = {};
        std::string error;
        ASSERT_TRUE(fp_request_parse(c.line, &request, &error)) << c.line << ": " << error;
        EXPECT_EQ(request.kind, c.kind) << c.line;
        EXPECT_TRUE(request.by_place) << c.line;
        EXPECT_EQ(request.place.vpn, c.place.vpn) << c.line;
        EXPECT_EQ(request.place.interface, c.place.interface) << c.line;
        EXPECT_EQ(request.place.direction, c.place.direction) << c.line;
        EXPECT_EQ(request.place.side, c.place.side) << c.line;
        EXPECT_EQ(request.place.family, c.place.family) << c.line;
        EXPECT_EQ(request.file, c.kind == FP_REQUEST_REPLAY ? "/a.pcap" : "") << c.line;
    }
}

TEST(FpRequestShortTest, BadRequestsTellWhatDoesNotHold)
{
    struct t_case {
        std::string line;
        const char *want;
    };
    static const t_case cases[] = {
        {"", "the request is empty"},
        {"--json", "the request is empty"},
        {"reload", "there is no request \"reload\""},
        {"load 3", "unknown word \"3\""},
        {"stats \"", "a quote is open"},
        {"classify", "the filter id is missing"},
        {"classify 1x", "no filter id: \"1x\""},
        {"classify 4294967296", "no filter id: \"4294967296\""},
        {"classify -2", "no filter id: \"-2\""},
        {"classify 1 10.0.0.1", "the fields are SRC DST SPORT DPORT PROTO"},
        {"classify 1 10.0.0.1 10.0.0.2 1 2 tcp 3", "unknown word \"3\""},
        {"classify 1 10.0.0.256 - - - -", "\"10.0.0.256\" is no value of a field"},
        {"classify 1 - - tcp - -", "\"tcp\" is no value of a field"},
        {"classify 1 colour=3", "there is no field \"colour\""},
        {"classify 1 dport=", "\"\" is no value of a field"},
        {"replay 1", "the file is missing"},
        {"replay 1 a.pcap --fast", "unknown word \"--fast\""},
        {"forward 10 ge0/1", "the place is VPN INTERFACE DIRECTION"},
        {"forward x ge0/1 in", "no vpn: \"x\""},
        {"forward 10 \"\" in", "no interface: \"\""},
        {"forward 10 ge0/1 none", "no direction: \"none\""},
        {"forward 10 ge0/1 in from=all", "no from: \"all\""},
        {"forward 10 ge0/1 in family=4", "no family: \"4\""},
        {"forward 10 ge0/1 in out-vpn=x", "no out-vpn: \"x\""},
        {"forward 10 ge0/1 in src6=10.0.0.1", "no src6: \"10.0.0.1\""},
        {"replay --src6 ::1 a.pcap", "unknown word \"--src6\""},
        {"zones 1", "unknown word \"1\""},
        {"forward 10 ge0/1 in 10.0.0.1", "the fields are SRC DST SPORT DPORT PROTO"},
        {"replay --vpn 10 --interface ge0/1 a.pcap", "--direction is missing"},
        {"replay --vpn", "nothing stands behind --vpn"},
        {"replay --family ipv4 a.pcap", "unknown word \"--family\""},
        {"replay --vpn 10 --interface ge0/1 --direction in", "the file is missing"},
        {"{\"request\": \"forward\", \"vpn\": [1]}", "\"vpn\" is neither text nor a whole number"},
        {"{\"request\": \"bindings\", \"vpns\": []}", "\"interfaces\" is no array"},
        {"{\"request\": \"load\", \"vpns\": []}", "only bindings have rows"},
        {"{", "the line is no JSON object"},
        {"{}", "the request is empty"},
        {"{\"request\": [\"load\"]}", "\"request\" is neither text nor a whole number"},
        {"{\"request\": \"load\", \"when\": 1}", "there is no member \"when\""},
        {"{\"request\": \"classify\", \"filter\": 1.5}", "\"filter\" is neither text nor a whole number"},
        {"{\"request\": \"classify\", \"filter\": 1, \"fields\": [1]}", "\"fields\" is no object"},
        {"{\"request\": \"classify\", \"filter\": 1, \"fields\": {\"src\": null}}",
         "the value of \"src\" is neither text nor a whole number"},
        {"{\"request\": \"replay\", \"filter\": 1, \"file\": \"a\", \"sidecar\": 1}",
         "\"sidecar\" is neither true nor false"},
        {std::string(20000, '['), "there is no request"},
        {'{' + std::string(20000, '['), "the line is no JSON object"},
    };
    for (const t_case &c : cases) {
        t_fp_request request = {};
        std::string error;
        EXPECT_FALSE(fp_request_parse(c.line, &request, &error)) << c.line;
        EXPECT_TRUE(error.starts_with(c.want)) << c.line.substr(0, 80) << ": " << error.substr(0, 80);
        EXPECT_EQ(request.json, c.line.starts_with('{') || c.line == "--json") << c.line.substr(0, 80);
    }
}

TEST(FpRequestShortTest, SidecarLinesBelongToFramesOneByOne)
{
    static constexpr char content[] = "# what no header tells\napp=17  class=3\r\n\nplp=2\nsrc=1\napp=1";
    t_test_file file(std::as_bytes(std::span(content, sizeof(content) - 1)));
    t_fp_sidecar sidecar;
    std::string error;
    ASSERT_TRUE(fp_sidecar_open(file.path, &sidecar, &error)) << error;
    static constexpr std::pair<uint32_t, uint32_t> want[] = {
        {tarn_ip_dpi_app, 17}, {tarn_ip_match_any, 1}, {tarn_ip_plp, 2}};
    for (auto [type, value] : want) {
        t_fp_header header = fp_header_blank();
        ASSERT_TRUE(fp_sidecar_next(&sidecar, &header, nullptr, &error)) << error;
        EXPECT_EQ(header.values[type], value);
        EXPECT_EQ(header.values[tarn_ip_fc], type == tarn_ip_dpi_app ? 3u : 0u);
    }
    t_fp_header header = fp_header_blank();
    EXPECT_FALSE(fp_sidecar_next(&sidecar, &header, nullptr, &error));
    EXPECT_EQ(error, file.path + ":5: field \"src\" comes from the packet");
    EXPECT_TRUE(fp_sidecar_next(&sidecar, &header, nullptr, &error));
    EXPECT_FALSE(fp_sidecar_next(&sidecar, &header, nullptr, &error));
    EXPECT_EQ(error, file.path + ": has fewer lines than the capture has frames");
    EXPECT_FALSE(fp_sidecar_open(file.folder, &sidecar, &error));
}
