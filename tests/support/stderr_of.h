/// What a piece of code prints on standard error.
#pragma once

#include <gtest/gtest.h>

#include <string>

template <class Function>
std::string StderrOf(Function&& function)
{
    testing::internal::CaptureStderr();
    function();
    return testing::internal::GetCapturedStderr();
}
