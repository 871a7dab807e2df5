#include "config/access/io/left_queues.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/message_queue.h"
#include "support/in_child.h"
#include "support/queue_test.h"

namespace mq = vexa::config::access;

namespace {

using MainstayQueueLeft = QueueTest;

constexpr uint32_t kNobody = 0xFFF0u << 16;  // no process has such a number

mqd_t Make(uint32_t connectionID)
{
    return mq::CreateQueue(mq::ConnectionUtilities::GetQueueName(connectionID), O_RDWR | O_EXCL);
}

bool Exists(uint32_t connectionID)
{
    const mqd_t queue = mq_open(mq::ConnectionUtilities::GetQueueName(connectionID).c_str(), O_RDONLY);
    if (queue != -1) mq_close(queue);
    return queue != -1;
}

/// Gives this process a list of the queues, where the system has none. @return false when it may not.
bool MountQueues()
{
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/dev", "tmpfs", 0, nullptr) == 0 && mkdir(mq::kQueueFolder, 0755) == 0 &&
           mount("none", mq::kQueueFolder, "mqueue", 0, nullptr) == 0;
}

TEST_F(MainstayQueueLeft, OnlyThoseOfEndedClientsGo)
{
    ExpectInChild([] {
        if (!MountQueues()) return;
        const uint32_t left = kNobody, locked = kNobody + 1, foreign = kNobody + 2, running = (1 << 16) + 7,
                       open = kNobody + 3;
        for (const uint32_t id : {left, foreign, running}) {
            const mqd_t queue = Make(id);
            EXPECT_EQ(fchown(queue, id == foreign ? 12345 : getuid(), getgid()), 0);
            mq_close(queue);
        }
        Make(open);
        const mqd_t held = Make(locked);
        EXPECT_TRUE(mq::LockQueue(held));
        const pid_t holder = fork();  // has the lock as well
        if (holder == 0) pause();
        mq_close(held);
        EXPECT_TRUE(mq::RemoveLeftQueues());
        EXPECT_FALSE(mq::RemoveLeftQueues());
        EXPECT_FALSE(Exists(left));
        for (const uint32_t id : {locked, foreign, running, open}) {
            EXPECT_TRUE(Exists(id)) << id;
            mq_unlink(mq::ConnectionUtilities::GetQueueName(id).c_str());
        }
        kill(holder, SIGKILL);
        waitpid(holder, nullptr, 0);
    });
}

TEST_F(MainstayQueueLeft, TheyMakeRoomForANewOne)
{
    ExpectInChild([] {
        if (!MountQueues()) return;
        uint32_t id = kNobody;
        rlimit limit{};
        getrlimit(RLIMIT_MSGQUEUE, &limit);
        const rlim_t before = limit.rlim_cur;
        for (int i = 0; i < 300; ++i) {  // more than the user, and more than the system may have
            const mqd_t queue = Make(id++);
            ASSERT_NE(queue, -1) << i;
            mq_close(queue);
        }
        getrlimit(RLIMIT_MSGQUEUE, &limit);
        EXPECT_EQ(limit.rlim_cur, before) << "the limit was not the answer";
        mq::RemoveLeftQueues();
    });
}

}  // namespace
