/// Programs whose system calls fail when a test says so.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "faults/plan.h"
#include "support/raw_peer.h"

/// As many times as it is called.
constexpr int kMany = 1 << 30;

/// One failure: after `skip` more calls, `times` end with the error. 0 times: none.
struct Failure {
    faults::Call call;
    int error = 0, times = 1, skip = 0;
};

/// The plan of one program. The file goes with it.
class Faults {
  public:
    Faults()
    {
        const int file = mkstemp(m_path.data());
        EXPECT_EQ(ftruncate(file, sizeof(faults::Plan)), 0);
        m_plan = static_cast<faults::Plan*>(
            mmap(nullptr, sizeof(faults::Plan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
        EXPECT_NE(m_plan, MAP_FAILED);
        close(file);
    }
    ~Faults()
    {
        munmap(m_plan, sizeof(faults::Plan));
        unlink(m_path.c_str());
    }
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;

    /// For the program. The address sanitizer wants to be the first library, and is the second.
    std::vector<std::string> Environment() const
    {
        const char* const options = getenv("ASAN_OPTIONS");
        return {VEXA_PRELOAD, faults::kPlanVariable + ("=" + m_path), "PRODUCT_ID=OAK",
                "ASAN_OPTIONS=verify_asan_link_order=0:" + std::string(options ? options : "")};
    }
    void Arm(const Failure& failure)
    {
        faults::Rule& rule = m_plan->rules[failure.call];
        rule.times = 0;
        rule.failed = 0;
        rule.error = failure.error;
        rule.skip = failure.skip;
        rule.times = failure.times;
    }
    void Disarm(faults::Call call) { Arm({call, 0, 0}); }
    /// Since it was armed.
    int Failed(faults::Call call) const { return m_plan->rules[call].failed; }
    int Begun(faults::Call call) const { return m_plan->rules[call].begun; }

  private:
    std::string m_path = "/tmp/vexa_faults_XXXXXX";
    faults::Plan* m_plan;
};
