#include "config/values/private_value.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "config/values/config_value.h"
#include "config/values/sector_header.h"
#include "config/values/vector.h"
#include "support/stderr_of.h"
#include "support/stream_bytes.h"

namespace {

constexpr auto kID = eParam_t{0x1302000a};

/// Objects of the shared classes and a vector around them, every field of which holds n.
vexa::config::values::Vector Make(unsigned int n)
{
    vexa::config::values::Vector vector;
    const std::string text(50 * n, 'x');
    vector.Add(std::make_unique<IntegerValue>(n, eParam_t{n}, eCParam_IntegerValue, n));
    vector.Add(std::make_unique<StringValue>(n, eParam_t{n}, eCParam_StringValue, text));
    vector.Add(std::make_unique<SectorHeader>(n, n, n));
    return vector;
}

TEST(ReadPrivate, ThreadsThatReadAtOnceNeverSeeEachOther)
{
    ClassFactory::InitFactories();
    std::atomic<int> crossed = 0;
    const auto read = [&crossed](unsigned int n) {
        auto vector = Make(n);
        std::vector<Serializable*> originals{&vector};
        for (const auto& element : vector.Elements()) originals.push_back(element.get());
        for (Serializable* const original : originals) {
            const std::string bytes = Streamed(*original);
            for (int again = 0; again < 200; ++again) {
                Reader reader(bytes);
                const auto mine = ReadPrivate(reader);
                if (!mine || !mine->IsEqual(original)) ++crossed;
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
