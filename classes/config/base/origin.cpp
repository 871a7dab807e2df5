#include "config/base/origin.h"

#include <utility>

namespace vexa {

namespace {

thread_local const std::string* t_origin = nullptr;

}  // namespace

OriginScope::OriginScope(std::string who) : m_own(std::move(who)), m_outer(std::exchange(t_origin, &m_own)) {}

OriginScope::OriginScope(const std::string* who) : m_outer(std::exchange(t_origin, who)) {}

OriginScope::~OriginScope()
{
    t_origin = m_outer;
}

std::string CurrentOrigin()
{
    return t_origin ? *t_origin : "";
}

}  // namespace vexa
