#include "config/private_value.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "config/config_value.h"
#include "config/values/checkpoint.h"
#include "config/values/sector_header.h"
#include "config/values/vector.h"
#include "support/stderr_of.h"
#include "support/stream_bytes.h"

namespace {

constexpr auto kID = eParam_t{0x1302000a};

std::unique_ptr<Serializable> Read(const std::string& bytes)
{
    Reader reader(bytes);
    return ReadPrivate(reader);
}

/// Objects whose every field holds n.
std::unique_ptr<Serializable> Make(eClassID_t id, unsigned int n)
{
    if (id == eClassID_SectorHeader) return std::make_unique<SectorHeader>(n, n, n);
    if (id == eClassID_StringValue)
        return std::make_unique<StringValue>(n, eParam_t{n}, eCParam_StringValue, std::string(50 * n, 'x'));
    if (id == eClassID_IntegerValue)
        return std::make_unique<IntegerValue>(n, eParam_t{n}, eCParam_IntegerValue, n);
    auto vector = std::make_unique<vexa::config::values::Vector>();
    for (int element = 0; element < 3; ++element) vector->Add(Make(eClassID_IntegerValue, n));
    return vector;
}

TEST(ReadPrivate, ThreadsThatReadAtOnceNeverSeeEachOther)
{
    ClassFactory::InitFactories();
    std::atomic<int> crossed = 0;
    const auto read = [&crossed](unsigned int n) {
        for (const auto id :
             {eClassID_IntegerValue, eClassID_StringValue, eClassID_SectorHeader, eClassID_Vector}) {
            const auto original = Make(id, n);
            const std::string bytes = Streamed(*original);
            for (int again = 0; again < 200; ++again) {
                const auto mine = Read(bytes);
                if (!mine || !mine->IsEqual(original.get())) ++crossed;
            }
        }
    };
    StderrOf([&] {
        std::jthread other([&] { read(2); });
        read(1);
    });
    EXPECT_EQ(crossed, 0);
}

TEST(PrivateCopy, StaysAsItWasWhileTheOriginalChanges)
{
    const std::string kShort(3, 'a'), kLong(5000, 'b');
    StringValue stored(0, kID, eCParam_StringValue, kShort);
    std::atomic<bool> changing = true;
    std::jthread writer([&] {
        for (int n = 0; n < 2000; ++n) stored.Set(n % 2 ? kLong : kShort);
        changing = false;
    });
    while (changing) {
        const PrivateCopy copy(&stored);
        const std::string text = Streamed(*copy.get()).substr(16);
        EXPECT_TRUE(text.c_str() == kShort || text.c_str() == kLong);
        EXPECT_EQ(text.find('\0'), text.size() - 1);
    }
}

}  // namespace
