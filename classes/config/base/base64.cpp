#include "config/base/base64.h"

#include <algorithm>
#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/binary_from_base64.hpp>
#include <boost/archive/iterators/transform_width.hpp>

namespace it = boost::archive::iterators;

namespace vexa {

std::string ToBase64(const std::string& bytes)
{
    using Encoded = it::base64_from_binary<it::transform_width<std::string::const_iterator, 6, 8>>;
    std::string text(Encoded(bytes.begin()), Encoded(bytes.end()));
    text.append((3 - bytes.size() % 3) % 3, '=');
    return text;
}

std::optional<std::string> FromBase64(std::string text)
try {
    using Decoded = it::transform_width<it::binary_from_base64<std::string::const_iterator>, 8, 6>;
    if (text.size() % 4 != 0) return std::nullopt;
    const size_t length = std::min(text.find_last_not_of('=') + 1, text.size());
    const size_t padding = text.size() - length;
    if (padding > 2) return std::nullopt;
    std::replace(text.begin() + static_cast<std::ptrdiff_t>(length), text.end(), '=', 'A');
    std::string bytes(Decoded(text.cbegin()), Decoded(text.cend()));
    bytes.resize(bytes.size() - padding);
    return bytes;
} catch (const it::dataflow_exception&) {
    return std::nullopt;
}

}  // namespace vexa
