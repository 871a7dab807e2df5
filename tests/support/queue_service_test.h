/// A service of the message queues in this process, and the store that it serves.
#pragma once

#include <optional>

#include "config/access/server/peer_stores.h"
#include "config/access/server/queues/queue_service.h"
#include "config/descriptors/registry/registry.h"
#include "support/queue_test.h"
#include "support/stderr_of.h"

class QueueServiceTest : public QueueTest {
  protected:
    void Start() override
    {
        StderrOf([] { CreateDescriptors(); });
        m_store = vexa::corvalis::config::access::OpenPeerStore(0);
        m_service.emplace();
        ASSERT_TRUE(m_service->Start());
    }
    void TearDown() override
    {
        m_service.reset();
        vexa::corvalis::config::access::ClosePeerStore(m_store);
    }

    Config* m_store = nullptr;
    std::optional<vexa::config::access::QueueService> m_service;
};
