/// A check in a process of its own, for what is settled, or spoilt, once per process.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

/// The check's expectations count. What follows in the test also runs in the child, so ask about the text
/// that the check writes to standard error through `written`.
template <class Check>
void ExpectInChild(Check&& check, const testing::Matcher<const std::string&>& written = testing::_)
{
    GTEST_FLAG_SET(death_test_style, VEXA_DEATH_TEST_STYLE);
    const auto child = [&] {
        check();
        exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), written);
}

/// The same on one model, which is settled on first use.
template <class Check>
void ExpectOnModel(const std::string& model, Check&& check,
                   const testing::Matcher<const std::string&>& written = testing::_)
{
    SCOPED_TRACE(model);
    const auto onModel = [&] {
        setenv("PRODUCT_ID", model.c_str(), 1);
        check();
    };
    ExpectInChild(onModel, written);
}
