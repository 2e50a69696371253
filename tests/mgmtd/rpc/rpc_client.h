// A NETCONF session without a wire: operations as XML, replies as short texts.
#pragma once

#include "mgmtd/rpc/mgmt_rpc.h"
#include "tests/mgmtd/test_daemon.h"

struct RpcClient {
    RpcClient(TestWorld *p_world, const std::string &user, uint32_t netconf_id,
              const mgmt_rpc_server_ptr &server = nullptr);

    // "ok"; what stands in the reply, without the namespaces of the test's modules; or for errors
    // "tag path element=value...", one a line.
    std::string call(const std::string &operation);
    void start(const std::string &operation);  // without waiting: the answer comes to `answer`

    // The same for edit-config of the candidate with the content of store-test, and get-config of it.
    std::string edit(const std::string &content, const std::string &options = "");
    std::string content(const std::string &datastore = "candidate");

    TestWorld *p_world;
    mgmt_rpc_session_ptr session;
    std::optional<std::string> answer;
    std::string message;            // of the last error
    std::vector<std::string> told;  // notifications
};

// A world with users ro, op and ad of the three groups; "root" needs no rights.
struct RpcWorld : TestWorld {
    RpcWorld();
    mgmt_rpc_server_ptr server;
};

inline const std::string COMMIT = "<commit/>";
inline const std::string COPY_RUNNING =
    "<copy-config><target><candidate/></target><source><running/></source></copy-config>";
