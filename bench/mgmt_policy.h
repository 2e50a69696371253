// The data policy that the management daemon's benchmarks work on.
#pragma once

#include <string>

inline std::string bench_sequence(long number)
{
    std::string id = std::to_string(number);
    return R"({"number":)" + id + R"(,"match":{"protocol":[6,17],"source-ip":["10.)" +
           std::to_string(number / 256) + "." + std::to_string(number % 256) +
           R"(.0/24"],"destination-port":[")" + id + R"("],"source-data-prefix-list":"list-)" +
           std::to_string(number % 100) + R"("},"action":{"base-action":"accept","count":"counter-)" + id +
           R"(","set":{"dscp":10}}})";
}

// Edits that make a policy of so many sequences with four matches and three actions each.
inline std::string bench_policy(long sequences)
{
    std::string lists, rows;
    for (int i = 0; i < 100; i++)
        lists += (i > 0 ? "," : "") + (R"({"name":"list-)" + std::to_string(i)) +
                 R"(","ip-prefix":[{"prefix":"10.0.0.0/8"}]})";
    for (long i = 1; i <= sequences; i++)
        rows += (i > 1 ? "," : "") + bench_sequence(i);
    return R"([{"path":"/policy-from-keelson","value":{"lists":{"vpn-list":[{"name":"v","vpn":[{"range":"1"}]}],)"
           R"("data-prefix-list":[)" +
           lists + R"(]},"data-policy":[{"name":"p","vpn-list":[{"name":"v","sequence":[)" + rows +
           "]}]}]}}]";
}

inline constexpr const char *BENCH_SEQUENCES = "/policy-from-keelson/data-policy{p}/vpn-list{v}/sequence";

// An edit of one leaf of one sequence.
inline std::string bench_leaf(int dscp)
{
    return R"([{"path":")" + std::string(BENCH_SEQUENCES) + R"({500}/action/set/dscp","value":)" +
           std::to_string(dscp % 64) + "}]";
}
