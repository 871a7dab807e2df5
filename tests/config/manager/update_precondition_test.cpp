#include "config/manager/update_precondition.h"

#include <gtest/gtest.h>

#include "config/descriptors/integer_descriptor.h"
#include "support/store.h"

using vexa::config::IntegerQueue, vexa::config::StringQueue, vexa::config::UpdatePreconditionValues;

namespace {

TEST(UpdatePreconditionValues, RangeRules)
{
    const struct {
        unsigned int min, max, value;
        bool valid;
        unsigned int forced, limit;
        const char* reason;
    } kRows[] = {
        {0, 10, 0, true, 0, 10, "lower end"},
        {0, 10, 10, true, 10, 10, "upper end"},
        {0, 10, 15, false, 10, 10, "above goes to the maximum"},
        {5, 10, 4, false, 5, 5, "below goes to the minimum"},
        {0, 0xffffffff, 0xffffffff, true, 0xffffffff, 0xffffffff, "the whole range"},
        {250, 5, 250, true, 5, 5, "min above max admits min .. min + max"},
        {250, 5, 255, true, 5, 5, "its upper end"},
        {250, 5, 256, false, 5, 5, "just above"},
        {250, 5, 3, false, 250, 250, "far below goes to the minimum"},
        {0x80000001, 5, 0, false, 0, 5, "2^31 - 1 above the minimum: not below it, yet out of range"},
    };
    UpdatePreconditionValues rules;
    for (auto [min, max, value, valid, forced, limit, reason] : kRows) {
        IntegerDescriptor descriptor;
        descriptor.SetMinValue(min);
        descriptor.SetMaxValue(max);
        EXPECT_EQ(rules.IsValidRange(&descriptor, value), valid) << reason;
        EXPECT_EQ(rules.ForceValidRange(&descriptor, value), limit) << reason;
        EXPECT_EQ(value, forced) << reason;
    }
}

TEST(UpdatePreconditionValues, DependentMinimumWrapsLikeTheNumbers)
{
    UpdatePreconditionValues rules;
    for (auto [value, minimum, maximum, result, reason] :
         {std::tuple{91u, 10u, 100u, 91u, "less than the minimum below the maximum: stays"},
          {90u, 10u, 100u, 91u, "exactly the minimum below: lifted"},
          {0u, 10u, 100u, 91u, "far below: lifted"},
          {50u, 0u, 100u, 101u, "minimum 0 puts every value one above the maximum"},
          {100u, 0u, 100u, 101u, "the maximum too"},
          {101u, 10u, 100u, 91u, "above the maximum wraps to a large distance"}}) {
        rules.ForceValidRange(value, minimum, maximum);
        EXPECT_EQ(value, result) << reason;
    }
}

TEST(UpdatePreconditionValues, CorrectsNumbersAndDropsUnlistedEnumerationsInTheQueue)
{
    TestStore store;
    UpdatePreconditionValues rules;

    IntegerQueue number{{eParamID_RegisterSave, 500}, {eParamID_RegisterSave, 600}};
    EXPECT_TRUE(rules.IsUpdateValid(&*store, number));
    EXPECT_EQ(number, (IntegerQueue{{eParamID_RegisterSave, 20}, {eParamID_RegisterSave, 600}}));

    IntegerQueue listed{{eParamID_SystemCommand, 6}},
        unlisted{{eParamID_SystemCommand, 7}, {eParamID_Take, 1}};
    EXPECT_TRUE(rules.IsUpdateValid(&*store, listed));
    EXPECT_FALSE(rules.IsUpdateValid(&*store, unlisted)) << "in the range, but not among the values";
    EXPECT_EQ(unlisted, (IntegerQueue{{eParamID_Take, 1}}));

    IntegerQueue unknown{{eParam_t{0x01020304}, 1}}, empty;
    EXPECT_FALSE(rules.IsUpdateValid(&*store, unknown));
    EXPECT_FALSE(rules.IsUpdateValid(&*store, empty));

    StringQueue text{{eParamID_SystemCommand, "anything"}};
    EXPECT_TRUE(rules.IsUpdateValid(&*store, text)) << "texts pass unseen";
}

}  // namespace
