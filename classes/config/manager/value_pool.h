/// The values of deleted stores.
#pragma once

#include <cstddef>
#include <list>
#include <map>

#include "config/param_ids.h"

class Serializable;
class ParamDescriptor;

namespace vexa {

/// The values that the deleted stores of one number have left, for the next one.
///
/// Values are never freed, because a caller may still hold a pointer from GetSerializable. A store gives them back to
/// the pool of the process, and the next store of the same number uses them. Peers choose the numbers: when the pool
/// holds as many sets as it keeps apart, a further number takes over the one that has rested longest. So there are never
/// more sets than these and those of the stores that lived at once.
/// Thread: the store's, under its value lock; making one, and giving back, on any thread.
class FormerValues {
  public:
    /// The sets that rest for their own number: as many as stores that peers may have open.
    static constexpr size_t kKeptApart = 64;

    using Values = std::map<eParam_t, Serializable*>;

    explicit FormerValues(eConfigID_t configID);
    FormerValues(const FormerValues&) = delete;
    FormerValues& operator=(const FormerValues&) = delete;

    /// A value as a new one would be: with the factory default, and dirty when the number is not 0.
    /// @return an empty handle when there is none of the descriptor's class and type.
    Values::node_type Take(ParamDescriptor& descriptor);
    /// Gives all back to the pool, with those of the store itself. Allocates nothing.
    void Return(Values& values);

  private:
    struct Set {
        eConfigID_t configID;
        std::multimap<eParam_t, Serializable*>
            values;  // several of one parameter if its descriptor has changed
    };
    using Sets = std::list<Set>;
    struct Pool;

    static Pool& ThePool();

    Sets m_own;  // one; lists exchange their elements without allocating
};

}  // namespace vexa
