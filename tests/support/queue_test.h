/// Tests that need message queues, and the daemon's name /mainstay for themselves.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "config/access/io/message_queue.h"

/// Skips with one line where another daemon serves the name, or no queues are left for this user. A fixture makes
/// what it needs in Start, which is not called then.
class QueueTest : public testing::Test {
  protected:
    virtual void Start() {}
    /// A factory leaves the daemon's queue open for good: it would count until the last test.
    ~QueueTest() override
    {
        std::vector<int> left;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry, gone) == "/mainstay (deleted)")
                left.push_back(std::stoi(entry.path().filename()));
        }
        for (const int descriptor : left) close(descriptor);
    }

  private:
    void SetUp() final
    {
        const std::string obstacle = IsNameTaken() ? "another daemon serves /mainstay" : LackOfQueues();
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;
        Start();
    }
    /// A daemon holds a lock as long as it lives; the queue itself may be what a killed one has left.
    static bool IsNameTaken()
    {
        const mqd_t queue = mq_open(vexa::config::access::kRequestQueue, O_RDONLY);
        if (queue == -1) return errno == EACCES;  // of another user
        const bool taken = flock(queue, LOCK_EX | LOCK_NB) != 0;
        mq_close(queue);
        return taken;
    }
    static std::string LackOfQueues()
    {
        constexpr int kNeeded = 6;  // the daemon's and those of its clients
        std::string lack;
        std::vector<mqd_t> queues;
        const std::string name = "/vexa_probe_" + std::to_string(getpid());
        for (int i = 0; i < kNeeded && lack.empty(); ++i) {
            queues.push_back(vexa::config::access::CreateQueue(name, O_RDWR));
            if (queues.back() == -1) lack = std::string("no message queue: ") + strerror(errno);
            mq_unlink(name.c_str());  // it counts until it is closed
        }
        for (const mqd_t queue : queues) mq_close(queue);
        return lack;
    }
};
