// The stream format: bytes, bounds and what a reader makes of nonsense.
#include "config/streams/memory_deserializer.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "config/values/checkpoint.h"
#include "config/values/config_value.h"
#include "config/values/package_header.h"
#include "config/values/private_value.h"
#include "config/values/sector_header.h"
#include "config/values/vector.h"
#include "support/failing_new.h"
#include "support/golden.h"
#include "support/stderr_of.h"
#include "support/stream_bytes.h"

using vexa::config::values::PresetsParamVector, vexa::config::values::Vector;
using namespace std::string_literals;

namespace {

// ---- Fields ----

struct FieldRow {
    const char* what;
    std::string bytes, needed;  ///< as written, and what its reader needs of it
    bool peeks;                 ///< its reader leaves the position
    std::function<void(Serializer&)> write;
    std::function<bool(MemoryDeSerializer&)> reads, fails;  ///< with the value, with a neutral value
};

template <class T>
FieldRow Field(const char* what, T value, std::string bytes, bool peeks = false)
{
    const auto reads = [=](MemoryDeSerializer& stream) {
        T got{};
        return stream.Read("", got) && got == value;
    };
    const auto fails = [=](MemoryDeSerializer& stream) {
        T got = value;
        return !stream.Read("", got) && got == T{};
    };
    return {what, bytes, bytes, peeks, [=](Serializer& stream) { stream.Write("", value); }, reads, fails};
}

FieldRow CutText()
{
    FieldRow row = Field("text that its reader cuts", "a"s, "a\0"s);
    row.bytes = "a\0b\0"s;
    row.write = [](Serializer& stream) { stream.Write("", "a\0b"s); };
    return row;
}

// Readers peek a long or a byte and then read the same bytes again.
const FieldRow kFieldRows[] = {
    Field<unsigned char>("byte", 0xAB, "\xAB", true),
    Field("long", -2L, Words({0xFFFFFFFE}), true),
    Field("int", -2, Words({0xFFFFFFFE})),
    Field("unsigned int", 0xFEDCBA98u, Words({0xFEDCBA98})),
    Field("true", true, Words({0xBEEF})),
    Field("false", false, Words({0xDEAD})),
    Field("empty text", ""s, "\0"s),
    Field("text", "Scène"s, "Scène\0"s),
    CutText(),
};

TEST(MemorySerializer, LaysFieldsDownInHostOrderAtAnyAlignmentWhereTheyFit)
{
    for (const FieldRow& row : kFieldRows)
        for (const size_t shift : {0u, 1u}) {
            SCOPED_TRACE(row.what);
            MemorySerializerSizer sizer(eSerializationFormat_Memory);
            row.write(sizer);
            EXPECT_EQ(sizer.GetBytesWritten(), row.bytes.size());
            for (size_t room = 0; room <= row.bytes.size(); ++room) {
                const std::string before(shift, '.'), empty(room, '#');
                const Exactly buffer(before + empty);
                Writer writer(buffer, static_cast<ptrdiff_t>(shift));
                row.write(writer);
                const bool fits = room == row.bytes.size();
                EXPECT_EQ(writer.Failed(), !fits);
                EXPECT_EQ(writer.GetBytesWritten(), fits ? row.bytes.size() : 0);
                EXPECT_EQ(writer.Available(), static_cast<ptrdiff_t>(fits ? 0 : room));
                writer.Write("", static_cast<unsigned char>(1));
                EXPECT_EQ(buffer.Text(), before + (fits ? row.bytes : empty)) << "stays failed";
                writer.SetBufferStart(buffer.begin());
                EXPECT_FALSE(writer.Failed()) << "in another buffer as well";
            }
        }
}

TEST(MemorySerializer, ABufferIsItsLengthAndItsBytes)
{
    char bytes[] = {'x', 0, 'z'};
    const std::string empty = "############";
    for (const auto& [length, written] : {std::pair{0u, Words({0}) + "########"},
                                          {3u, Words({3}) + "x\0z#####"s},
                                          {9u, empty},
                                          {0xFFFFFFFCu, empty},
                                          {0xFFFFFFFFu, empty}}) {
        const Exactly buffer(empty);
        Writer writer(buffer);
        writer.Write("", bytes, length);
        EXPECT_EQ(writer.Failed(), written == empty) << length;
        EXPECT_EQ(buffer.Text(), written);
    }
}

TEST(MemoryDeSerializer, ReadsFieldsAtAnyAlignmentAndPeeksBytesAndLongs)
{
    for (const FieldRow& row : kFieldRows) {
        SCOPED_TRACE(row.what);
        for (const ptrdiff_t shift : {0, 1}) {
            Reader reader((shift ? "#" : "") + row.needed + row.needed, shift);
            for (const ptrdiff_t turn : {1, 2}) {
                EXPECT_TRUE(row.reads(reader));
                EXPECT_EQ(reader.Offset(), shift + (row.peeks ? 0 : turn * std::ssize(row.needed)));
            }
        }
        for (size_t length = 0; length < row.needed.size(); ++length) {
            Reader reader(row.needed.substr(0, length));
            EXPECT_TRUE(row.fails(reader)) << length;
            EXPECT_TRUE(reader.Failed() && reader.IsEndOfSector());
            reader.SetPos(reader.GetSectorStart());
            unsigned char byte = 1;
            EXPECT_FALSE(reader.Read("", byte)) << "the failure stays";
            const Exactly next("\1");
            reader.SetSectorStart(next.begin());
            reader.SetSectorEnd(next.end());
            reader.SetPos(next.begin());
            EXPECT_TRUE(reader.Read("", byte)) << "but not for another sector";
        }
    }
    Reader other(Words({0xBEEE}));
    bool value = true;
    EXPECT_TRUE(other.Read("", value));
    EXPECT_FALSE(value) << "every other word is false";
}

TEST(MemoryDeSerializer, ReadsBuffersWithinCapacityAndSector)
{
    const struct {
        const char* why;
        std::string bytes;
        unsigned int length, fixedLength;  ///< as read into a new buffer, and into one of three bytes
        ptrdiff_t fixedOffset;
        bool fails, fixedFails;
    } kRows[] = {
        {"empty data leaves the length of the fixed form", Words({0}), 0, 77, 4, false, false},
        {"fits", Words({3}) + "abc", 3, 3, 7, false, false},
        {"longer than the fixed buffer is not skipped there", Words({4}) + "abcd", 4, 0, 4, false, false},
        {"longer than both", Words({0xFFFFFFFF}) + "a", 0, 0, 4, true, false},
        {"beyond the positive numbers", Words({0x80000000}), 0, 0, 4, true, false},
        {"longer than the sector", Words({3}) + "ab", 0, 0, 6, true, true},
        {"no whole length", "abc", 0, 0, 3, true, true},
    };
    for (const auto& [why, bytes, length, fixedLength, fixedOffset, fails, fixedFails] : kRows) {
        SCOPED_TRACE(why);
        Reader reader(bytes), fixedReader(bytes);
        char* buffer = nullptr;
        unsigned int got = 77, fixedGot = 77;
        EXPECT_EQ(reader.Read("", buffer, got), !fails);
        const std::unique_ptr<char[]> owned(buffer);
        EXPECT_EQ(got, length);
        EXPECT_EQ(buffer ? std::string(buffer, got) : "none", length ? bytes.substr(4) : "none");
        EXPECT_TRUE(reader.Failed() == fails && reader.IsEndOfSector());

        const Exactly fixed("###");
        EXPECT_EQ(fixedReader.Read("", fixed.begin(), 3, fixedGot), fixedLength > 0);
        EXPECT_EQ(fixedGot, fixedLength);
        EXPECT_EQ(fixedReader.Offset(), fixedOffset);
        EXPECT_EQ(fixedReader.Failed(), fixedFails);
        EXPECT_EQ(fixed.Text(), fixedLength == 3 ? "abc" : "###");
    }
}

// ---- Objects ----

std::unique_ptr<Serializable> Number(unsigned int value)
{
    return std::make_unique<IntegerValue>(-1, eParam_t{0x7d02000a}, eCParam_EnumValue, value);
}

std::unique_ptr<Serializable> Text(std::string value)
{
    return std::make_unique<StringValue>(2, eParam_t{0x1302000a}, eCParam_StringValue, std::move(value));
}

template <class Container>
std::unique_ptr<Container> Filled()
{
    auto container = std::make_unique<Container>();
    for (const unsigned int value : {9u, 10u}) container->Add(Number(value));
    container->Add(Text("Take"));
    container->Add(std::make_unique<Checkpoint>());
    return container;
}

std::unique_ptr<Serializable> Presets()
{
    auto presets = Filled<PresetsParamVector>();
    presets->SetPresetsFile("a\0b"s);
    return presets;
}

TEST(Stream, ObjectsAreTheirClassAndTheirFieldsAndNothingWhenCut)
{
    const std::pair<const char*, std::function<std::unique_ptr<Serializable>()>> kRows[] = {
        {"stream.number", [] { return Number(9); }},
        {"stream.text", [] { return Text("Take"); }},
        {"stream.SectorHeader", [] { return std::make_unique<SectorHeader>(1, 2, 3); }},
        {"stream.Checkpoint", [] { return std::make_unique<Checkpoint>(); }},
        {"stream.PackageHeader", [] { return std::make_unique<PackageHeader>(); }},
        {"stream.Vector", Filled<Vector>},
        {"stream.PresetsParamVector", Presets},
    };
    for (const auto& [name, make] : kRows) {
        SCOPED_TRACE(name);
        const std::string bytes = Golden(name);
        const auto object = make();
        EXPECT_EQ(Streamed(*object), bytes);
        Reader reader(bytes + "more");
        StderrOf([&] {
            const auto copy = ReadPrivate(reader);
            ASSERT_TRUE(copy);
            EXPECT_TRUE(copy->IsEqual(object.get()) && object->IsEqual(copy.get()));
            EXPECT_EQ(Streamed(*copy), bytes) << "elements share an object, or a field went astray";
        });
        EXPECT_EQ(reader.Available(), 4);
        for (size_t length = 0; length < bytes.size(); ++length) {
            Reader cut(bytes.substr(0, length));
            StderrOf([&] { EXPECT_EQ(ReadPrivate(cut), nullptr) << length; });
            EXPECT_TRUE(cut.Failed() && cut.IsEndOfSector()) << length;
        }
    }
}

TEST(Stream, AnUnknownClassReadsAsNullAndIsNamed)
{
    for (const auto& bytes : {Words({3, 1}), Words({9, 1, 3})}) {
        Reader reader(bytes);
        const std::string message = StderrOf([&] { EXPECT_EQ(ReadPrivate(reader), nullptr); });
        EXPECT_TRUE(
            message.ends_with("Unable to find class factory for classID = 3\n"
                              "pValue == NULL after ClassFactory::Create() for classID = 3\n"));
    }
}

/// Fails in the middle of an object.
class ThrowingReader : public Reader {
  public:
    using Reader::Read;
    using Reader::Reader;
    bool Read(const char* name, unsigned int& word) override
    {
        if (name != "ClassID"s) throw std::runtime_error("no");
        return Reader::Read(name, word);
    }
};

TEST(Stream, AnObjectThatThrowsWhileItReadsIsGivenUpAndReadsAsNull)
{
    ThrowingReader reader(Golden("stream.PackageHeader"));
    Checkpoint before;
    Serializable* object = &before;
    StderrOf([&] { EXPECT_FALSE(reader.Read("Serializable", object)); });
    EXPECT_EQ(object, nullptr);
}

TEST(Stream, AnObjectWithoutMemoryReadsAsNullAndIsGivenUp)
{
    Reader reader(Golden("stream.PresetsParamVector"));
    const auto read = [&reader] {
        reader.SetSectorStart(reader.GetSectorStart());
        reader.SetPos(reader.GetSectorStart());
        Serializable* object = nullptr;
        const bool ok = reader.Read("Serializable", object);
        EXPECT_EQ(ok, object != nullptr);
        ClassFactory::Release(object);
    };
    StderrOf([&] { EXPECT_GT(WithEachAllocationFailing(read), 5); });
}

TEST(Stream, ASenderDoesNotChooseHowMuchIsAllocated)
{
    const std::string number = Streamed(*Number(7));
    for (const std::string& bytes : {Words({9, 0x01000000}) + number, Words({8, 0x01000000}) + number,
                                     Words({8, 1}) + number + Words({0x7FFFFFFF}) + "presets"}) {
        Reader reader(bytes);
        TakeLargestNew();
        StderrOf([&] { EXPECT_EQ(ReadPrivate(reader), nullptr); });
        EXPECT_LT(TakeLargestNew(), 64u * 1024) << testing::PrintToString(bytes);
    }
}

TEST(Stream, NestingIsLimited)
{
    std::string bytes = Words({9, 0});
    for (unsigned int level = 1; level < kMaxObjectNesting; ++level) bytes.insert(0, Words({9, 1}));
    StderrOf([&] {
        Reader deepest(bytes), deeper(Words({9, 1}) + bytes);
        auto vector = ReadPrivate(deepest);
        ASSERT_TRUE(vector);
        EXPECT_EQ(Streamed(*vector), bytes);
        EXPECT_EQ(ReadPrivate(deeper), nullptr);
        Vector outer;
        outer.Add(std::move(vector));
        EXPECT_EQ(MemorySerializerSizer::GetSize(&outer, nullptr), 0u)
            << "what no reader accepts is not sent";
    });
}

// ---- Records ----

TEST(Records, CompareTheirClassAndOnlySectorHeadersTheirFields)
{
    SectorHeader header(1, 2, 3), odometer(9, 2, 3), version(1, 9, 3), length(1, 2, 9), relabelled(1, 2, 3);
    relabelled.SetClassID(eClassID_Checkpoint);
    Checkpoint other;
    other.SetClassID(eClassID_SectorHeader);
    for (Serializable* const different :
         std::initializer_list<Serializable*>{&odometer, &version, &length, &relabelled, &other, nullptr})
        EXPECT_FALSE(header.IsEqual(different));
    PackageHeader package, larger;
    larger.fileSize = 1;
    EXPECT_TRUE(package.IsEqual(&larger));
}

TEST(PackageHeader, PrintsItsFields)
{
    EXPECT_EQ(PackageHeader().ToString(),
              "class=PackageHeader, _packageHeaderVersion=0x1001, _productID=FFFFFFFF,"
              " _productMode=63, _fileSize=0x0.");
}

}  // namespace
