#include "config/values/private_value.h"

#include <gtest/gtest.h>

#include "config/values/config_value.h"
#include "config/values/sector_header.h"
#include "config/values/vector.h"
#include "support/gate.h"
#include "support/in_child.h"
#include "support/stderr_of.h"
#include "support/stream_bytes.h"

namespace {

constexpr auto kID = eParam_t{0x1302000a};

/// Objects of the shared classes, every field of which holds n.
std::vector<std::unique_ptr<Serializable>> Make(unsigned int n)
{
    std::vector<std::unique_ptr<Serializable>> objects;
    const std::string text(50 * n, 'x');
    objects.push_back(std::make_unique<IntegerValue>(n, eParam_t{n}, eCParam_IntegerValue, n));
    objects.push_back(std::make_unique<StringValue>(n, eParam_t{n}, eCParam_StringValue, text));
    objects.push_back(std::make_unique<SectorHeader>(n, n, n));
    auto vector = std::make_unique<vexa::config::values::Vector>();
    vector->Add(std::make_unique<IntegerValue>(n, eParam_t{n}, eCParam_IntegerValue, n));
    objects.push_back(std::move(vector));
    return objects;
}

/// Stops behind the first object, before it can be copied.
class StoppingReader : public Reader {
  public:
    using Reader::Read;
    using Reader::Reader;
    bool Read(const char* name, Serializable*& object) override
    {
        const bool ok = Reader::Read(name, object);
        gate.Pass();
        return ok;
    }
    Gate gate;
};

TEST(ReadPrivate, AThreadThatReadsMeanwhileDoesNotChangeWhatAnotherReads)
{
    const auto ones = Make(1), twos = Make(2);
    for (size_t i = 0; i < ones.size(); ++i) {
        StoppingReader first(Streamed(*ones[i]));
        Reader second(Streamed(*twos[i]));
        std::unique_ptr<Serializable> one, two;
        StderrOf([&] {
            const std::jthread reading([&] { one = ReadPrivate(first); });
            EXPECT_TRUE(first.gate.KeepsWaiting([&] { two = ReadPrivate(second); })) << i;
        });
        EXPECT_TRUE(one && one->IsEqual(ones[i].get())) << i;
        EXPECT_TRUE(two && two->IsEqual(twos[i].get())) << i;
    }
}

/// A value of an application: a number with a unit, and a count of those that live.
class Measured : public IntegerValue {
  public:
    explicit Measured(std::string unit) : IntegerValue(0, kID, eCParam_IntegerValue, 7), m_unit(unit)
    {
        SetClassID(eClassID_t{20});
        ++alive;
    }
    ~Measured() override { --alive; }
    bool Serialize(Serializer* serializer) override
    {
        IntegerValue::Serialize(serializer);
        serializer->Write("Unit", m_unit);
        return true;
    }
    bool Deserialize(DeSerializer* deserializer) override
    {
        IntegerValue::Deserialize(deserializer);
        return deserializer->Read("Unit", m_unit);
    }
    static inline int alive = 0;

  private:
    std::string m_unit;
};

/// In place of the standard factory of numbers; with a prototype, as that one has, or without.
class MeasuredFactory : public ClassFactory {
  public:
    explicit MeasuredFactory(Measured* prototype)
        : ClassFactory(eClassID_IntegerValue), m_prototype(prototype)
    {
        Register(this);
    }
    Serializable* Create() override { return m_prototype ? m_prototype : new Measured(""); }

  private:
    Measured* const m_prototype;
};

TEST(ReadPrivate, TakesTheNewObjectsOfAFactoryAsTheyAreAndLeavesSharedOnes)
{
    ExpectInChild([] {
        ClassFactory::InitFactories();
        Measured sent("dB");
        sent.SetClassID(eClassID_IntegerValue);
        const std::string bytes = Streamed(sent);
        const auto read = [](const std::string& from) {
            Reader reader(from);
            return ReadPrivate(reader);
        };
        new MeasuredFactory(nullptr);
        EXPECT_EQ(Streamed(*read(bytes)), bytes);
        EXPECT_EQ(read(bytes.substr(0, bytes.size() - 1)), nullptr);
        EXPECT_EQ(Measured::alive, 1);

        Measured prototype("");
        new MeasuredFactory(&prototype);
        EXPECT_NE(read(bytes), nullptr);
        EXPECT_EQ(read(bytes.substr(0, bytes.size() - 1)), nullptr);
        EXPECT_EQ(Measured::alive, 2);
    });
}

TEST(PrivateCopy, IsOfTheSameClassAndKind)
{
    Measured measured("dB");
    EXPECT_EQ(Streamed(*PrivateCopy(&measured).get()), Streamed(measured));
    IntegerValue relabelled(0, kID, eCParam_IntegerValue, 7);
    relabelled.SetClassID(eClassID_t{21});
    EXPECT_EQ(PrivateCopy(&relabelled).get()->GetClassID(), 21u);
}

TEST(PrivateCopy, StaysAsItWasWhileTheOriginalChanges)
{
    StringValue stored(0, kID, eCParam_StringValue, "short");
    const PrivateCopy before(&stored);
    stored.Set(std::string(5000, 'b'));
    EXPECT_STREQ(Streamed(*before.get()).c_str() + 16, "short");

    // A copy is of one moment; the sanitizers see others.
    const std::jthread writer([&] { stored.Set("another"); });
    const PrivateCopy during(&stored);
    const std::string text = Streamed(*during.get()).substr(16);
    EXPECT_EQ(text.find('\0'), text.size() - 1);
}

}  // namespace
