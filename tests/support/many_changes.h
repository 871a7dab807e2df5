/// Many changes of many parameters, and whether somebody has heard how they ended.
#pragma once

#include <map>
#include <vector>

#include "config/config.h"
#include "config/descriptors/descriptor_table.h"

/// Switches the numbers of a store between two values each.
class ManyChanges {
  public:
    explicit ManyChanges(Config& store) : m_store(store)
    {
        constexpr unsigned int kTried = 20;
        for (const auto& [id, descriptor] : g_paramDescriptors)
            for (unsigned int value = 0; value < kTried; ++value)
                if (Takes(id, value) && Takes(id, value + 1)) {
                    m_numbers.push_back({id, value});
                    break;
                }
    }
    size_t Parameters() const { return m_numbers.size(); }
    /// The next changes, each of another parameter than the last one.
    void Make(int count)
    {
        for (; count > 0; --count, ++m_made) {
            const Number& number = m_numbers[m_made % m_numbers.size()];
            m_store.Set(number.id, m_store.Get(number.id) == number.value ? number.value + 1 : number.value);
        }
    }
    /// Whether these are the values that the store holds, of every parameter.
    bool AreHeard(const std::map<uint32_t, uint32_t>& heard) const
    {
        for (const Number& number : m_numbers) {
            const auto value = heard.find(uint32_t{number.id});
            if (value == heard.end() || value->second != m_store.Get(number.id)) return false;
        }
        return true;
    }

  private:
    struct Number {
        eParam_t id;
        unsigned int value;
    };
    bool Takes(eParam_t id, unsigned int value) { return m_store.Set(id, value) && m_store.Get(id) == value; }

    Config& m_store;
    std::vector<Number> m_numbers;
    size_t m_made = 0;
};
