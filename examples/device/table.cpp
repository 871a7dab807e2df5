/// A table of many devices: a row for each, a column for each parameter that matches the pattern.
///
///     table 'Fan*' rec-7 rec-8 10.0.0.9
#include <device/device.h>
#include <device/format.h>
#include <fnmatch.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

struct Row {
    std::map<std::string, std::string> values;  ///< as people read them
    std::string reason;                         ///< why there are none
};

Row Read(const std::string& address, const std::string& pattern)
{
    vexa::Device device(address);
    if (!device.WaitUntilInStep(std::chrono::seconds(5))) return {{}, device.Status().reason};
    const auto catalogue = device.Parameters();
    std::vector<eParam_t> ids;
    for (const auto& [id, descriptor] : catalogue->All())
        if (fnmatch(pattern.c_str(), vexa::Catalogue::NameOf(*descriptor).c_str(), 0) == 0) ids.push_back(id);
    const std::vector<vexa::GetResult> results = device.GetMany(ids);
    Row row;
    for (size_t i = 0; i < ids.size(); ++i) {
        ParamDescriptor& descriptor = *catalogue->Find(ids[i]);
        if (results[i])
            row.values[vexa::Catalogue::NameOf(descriptor)] = vexa::Format(descriptor, *results[i].value);
    }
    return row;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) return fprintf(stderr, "usage: %s PATTERN DEVICE...\n", argv[0]), 2;
    const std::vector<std::string> addresses(argv + 2, argv + argc);
    std::vector<std::future<Row>> reading;
    for (const std::string& address : addresses)
        reading.push_back(std::async(std::launch::async, Read, address, std::string(argv[1])));

    std::vector<Row> rows;
    std::set<std::string> columns;
    for (std::future<Row>& row : reading) {
        rows.push_back(row.get());
        for (const auto& [name, text] : rows.back().values) columns.insert(name);
    }
    printf("device");
    for (const std::string& name : columns) printf("\t%s", name.c_str());
    for (size_t i = 0; i < rows.size(); ++i) {
        printf("\n%s", addresses[i].c_str());
        if (!rows[i].reason.empty()) printf("\t%s", rows[i].reason.c_str());
        for (const std::string& name : columns) printf("\t%s", rows[i].values[name].c_str());
    }
    printf("\n");
}
