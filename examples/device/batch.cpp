/// One change on many devices, at the same time: all that can be reached get it or say why not.
///
///     batch FanSpeed='70 %' ReelName='Scene 12' -- rec-7 rec-8 10.0.0.9
///
/// The values are checked before the first is sent, with the catalogue of each device.
#include <device/device.h>
#include <device/format.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <utility>
#include <vector>

namespace {

using Words = std::vector<std::string>;

/// @return why not, or nothing.
std::string Change(vexa::Device& device, const Words& settings)
{
    const auto catalogue = device.Parameters();
    std::vector<std::pair<eParam_t, vexa::Value>> values;
    for (const std::string& setting : settings) {
        const size_t sign = std::min(setting.find('='), setting.size() - 1);
        ParamDescriptor* const descriptor = catalogue->Find(setting.substr(0, sign));
        if (!descriptor) return setting + ": unknown parameter";
        std::string reason;
        const auto value = vexa::Parse(*descriptor, setting.substr(sign + 1), reason);
        if (!value) return setting + ": " + reason;
        values.emplace_back(descriptor->GetParamID(), *value);
    }
    std::string reasons;
    for (const vexa::SetResult& result : device.SetMany(values))
        if (!result) reasons += result.reason + " ";
    return reasons;
}

std::string Work(const std::string& address, const Words& settings)
{
    vexa::Device device(address);
    if (!device.WaitUntilInStep(std::chrono::seconds(5))) return device.Status().reason;
    return Change(device, settings);
}

}  // namespace

int main(int argc, char** argv)
{
    const Words words(argv + 1, argv + argc);
    const auto separator = std::ranges::find(words, "--");
    if (separator == words.begin() || words.end() - separator < 2)
        return fprintf(stderr, "usage: %s NAME=VALUE... -- DEVICE...\n", argv[0]), 2;
    const Words settings(words.begin(), separator), addresses(separator + 1, words.end());

    std::vector<std::future<std::string>> results;
    for (const std::string& address : addresses)
        results.push_back(std::async(std::launch::async, Work, address, settings));
    bool isWhole = true;
    for (size_t i = 0; i < addresses.size(); ++i) {
        const std::string reason = results[i].get();
        printf("%s: %s\n", addresses[i].c_str(), reason.empty() ? "done" : reason.c_str());
        isWhole = isWhole && reason.empty();
    }
    return isWhole ? 0 : 1;
}
