// The registry cannot be emptied, so whatever changes it happens in a child process.
#include "config/streams/class_factory.h"

#include <gtest/gtest.h>

#include "config/values/checkpoint.h"
#include "config/values/standard_factories.h"
#include "support/failing_new.h"
#include "support/gate.h"
#include "support/in_child.h"
#include "support/stderr_of.h"

using namespace std::string_literals;

namespace {

class OwnFactory : public ClassFactory {
  public:
    explicit OwnFactory(unsigned int id = 20) : ClassFactory(eClassID_t{id}) { Register(this); }
    ~OwnFactory() override { ++destroyed; }
    Serializable* Create() override { return &m_product; }
    static inline int destroyed = 0;

  private:
    Checkpoint m_product;
};

Serializable* Make(unsigned int id)
{
    return ClassFactory::Create(eClassID_t{id});
}

std::string NotFound(const std::string& id)
{
    return "Unable to find class factory for classID = " + id + "\n";
}

TEST(ClassFactory, SharesTheSmallClassesAndMakesTheOthersNew)
{
    const std::string vector = "VectorFactory::Create - return new Vector()\n";
    const std::string package = "PackageHeaderFactory::Create - return new Vector()\n";
    for (const auto& [id, shared, message] : {std::tuple{0u, true, ""s},
                                              {1u, true, ""s},
                                              {6u, true, ""s},
                                              {7u, true, ""s},
                                              {8u, false, ""s},
                                              {9u, false, vector},
                                              {14u, false, package}}) {
        SCOPED_TRACE(id);
        Serializable *first = nullptr, *second = nullptr;
        EXPECT_EQ(StderrOf([&, id = id] {
                      first = Make(id);
                      first->SetClassID(eClassID_Unset);  // the factory labels again
                      second = Make(id);
                  }),
                  message + message);
        EXPECT_EQ(first == second, shared);
        EXPECT_EQ(second->GetClassID(), id);
        ClassFactory::Release(second);
        if (shared) {
            EXPECT_EQ(Make(id), first) << "a shared object was given up";
        } else {
            ClassFactory::Release(first);
        }
    }
}

TEST(ClassFactory, AnEarlyRegistrationLeavesTheStandardFactoriesOut)
{
    ExpectInChild(
        [] {
            new vexa::config::values::PresetsFactory(vexa::config::values::ePresetsPolicy{2});
            ClassFactory::InitFactories();
            EXPECT_EQ(Make(8), nullptr);
            EXPECT_EQ(Make(0), nullptr);
        },
        "PresetsFactory::Create - unknown policy 2, unable to create Presets instance\n" + NotFound("0"));
}

TEST(ClassFactory, AReplacedFactoryStaysAndDestroyedOnesAreNotRebuilt)
{
    ExpectInChild(
        [] {
            ClassFactory::InitFactories();
            new OwnFactory;
            Serializable* const old = Make(20);
            new OwnFactory;
            EXPECT_NE(old, Make(20));
            EXPECT_EQ(OwnFactory::destroyed, 0) << "its object may be in use";
            ClassFactory::DestroyFactories();
            ClassFactory::DestroyFactories();
            EXPECT_EQ(OwnFactory::destroyed, 1);
            ClassFactory::InitFactories();
            EXPECT_EQ(Make(0), nullptr);
            EXPECT_EQ(Make(20), nullptr);
        },
        NotFound("0") + NotFound("20"));
}

TEST(ClassFactory, WithoutMemoryNothingIsMadeAndTheNextCallTriesAgain)
{
    ExpectInChild([] {
        const auto make = [] { ClassFactory::Release(Make(8)); };
        EXPECT_GT(WithEachAllocationFailing(make), 10);
        for (const unsigned int id : {0u, 14u}) {
            Serializable* const made = Make(id);
            EXPECT_NE(made, nullptr) << id;
            ClassFactory::Release(made);
        }
    });
}

/// Holds up the registry until its gate opens, and then is not registered after all.
struct Withdrawn : ClassFactory {
    Withdrawn() : ClassFactory(eClassID_t{21}) {}
    eClassID_t GetClassID() override
    {
        gate.Pass();
        throw 1;
    }
    Serializable* Create() override { return nullptr; }
    Gate gate;
};

/// The first thread that asks has found the registry empty and is overtaken, by one that registers a factory of
/// its own and asks as well. On a busy machine the first may escape, but hardly three times.
TEST(ClassFactory, AThreadThatAsksDuringTheFirstRegistrationGetsAllOfIt)
{
    const auto overtake = [] {
        Withdrawn withdrawn;
        const std::jthread holding([&] { EXPECT_THROW(ClassFactory::Register(&withdrawn), int); });
        withdrawn.gate.Await();
        const OneProcessor shared;
        const auto make = [] {
            Serializable* const made = Make(8);
            EXPECT_NE(made, nullptr);
            ClassFactory::Release(made);
        };
        const WatchedThread first([&] {
            OneProcessor::GiveWay();
            make();
        });
        EXPECT_TRUE(first.Waits());
        const WatchedThread second([&] {
            new OwnFactory;
            make();
        });
        EXPECT_TRUE(second.Waits());
        withdrawn.gate.Open();
    };
    for (int again = 0; again < 3; ++again) ExpectInChild(overtake);
}

TEST(ClassFactory, LookUpsOfUnknownClassesLeaveRoom)
{
    ExpectInChild([] {
        unsigned int next = 1000;
        while (next < 3000) Make(next++);
        const int known = WithEachAllocationFailing([] { Make(1000); });
        EXPECT_EQ(WithEachAllocationFailing([&] { Make(next++); }), known) << "an entry more";
        for (const unsigned int id : {1000u, 2999u}) {
            new OwnFactory(id);
            EXPECT_NE(Make(id), nullptr);
        }
    });
}

}  // namespace
