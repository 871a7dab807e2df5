// The thread of a server that was stopped still prints, and counts as a user of its stores: the next test is not to
// meet it.
#include <gtest/gtest.h>

#include "config/access/server/network/network_server.h"
#include "support/raw_peer.h"

namespace {

class AwaitServers : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo& test) override
    {
        const std::chrono::milliseconds deadline(RawPeer::kDeadlineMs);
        EXPECT_TRUE(vexa::corvalis::config::access::NetworkServer::WaitUntilStopped(deadline)) << test.name();
    }
};

const bool isListening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new AwaitServers);
    return true;
}();

}  // namespace
