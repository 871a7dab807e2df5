/// The golden bytes of records and streams, which are the same set on every machine.
#pragma once

#include <bit>
#include <string>

/// @param name   of an entry of tests/golden/bytes.txt; one that is not there fails the test.
/// @param order  of its words. Network records are big-endian whatever the order.
std::string Golden(const std::string& name, std::endian order = std::endian::native);
