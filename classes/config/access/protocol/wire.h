/// Records of 32-bit words and their bytes, in network order (sockets) or host order (message queues).
///
/// A record lists its words once, in order:
///
///     struct Example {
///         uint32_t msgtype = 0, value = 0;
///         static constexpr void Words(auto& self, auto&& codec) { codec(self.msgtype, self.value); }
///     };
///
/// Size, encoding and decoding follow from the list. Words are int32_t, uint32_t or 32-bit enumerations.
/// Thread: any.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace vexa::wire {

constexpr uint32_t SwapBytes(uint32_t word)
{
    return word << 24 | (word & 0xFF00) << 8 | (word >> 8 & 0xFF00) | word >> 24;
}

struct HostOrder {
    static constexpr uint32_t Convert(uint32_t word) { return word; }
};
struct NetworkOrder {
    static constexpr uint32_t Convert(uint32_t word)
    {
        return std::endian::native == std::endian::little ? SwapBytes(word) : word;
    }
};

/// Bytes of a record.
template <class Record>
constexpr size_t Size()
{
    Record record;
    size_t size = 0;
    Record::Words(record, [&](const auto&... words) { size = (sizeof(words) + ... + 0); });
    return size;
}

template <class Order, class Record>
std::array<char, Size<Record>()> Encode(const Record& record)
{
    std::array<char, Size<Record>()> bytes;
    char* position = bytes.data();
    const auto put = [&](auto value) {
        static_assert(sizeof value == 4);
        const uint32_t word = Order::Convert(static_cast<uint32_t>(value));
        memcpy(position, &word, sizeof word);
        position += sizeof word;
    };
    Record::Words(record, [&](const auto&... words) { (put(words), ...); });
    return bytes;
}

/// The bytes of a record with its payload, as they are sent.
template <class Order, class Record>
std::string Bytes(const Record& record, std::string_view payload = {})
{
    const auto head = Encode<Order>(record);
    std::string bytes(head.data(), head.size());
    return bytes.append(payload);
}

/// @return false, with the record untouched, when there are fewer bytes than the record has.
template <class Order, class Record>
bool Decode(const char* data, size_t length, Record& record)
{
    if (length < Size<Record>()) return false;
    const auto take = [&]<class Word>(Word& value) {
        static_assert(sizeof value == 4);
        uint32_t word;
        memcpy(&word, data, sizeof word);
        data += sizeof word;
        value = static_cast<Word>(Order::Convert(word));
    };
    Record::Words(record, [&](auto&... words) { (take(words), ...); });
    return true;
}

}  // namespace vexa::wire
