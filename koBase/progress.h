// How far a long operation has come.
#pragma once

#include "koBase/export.h"

namespace koUtil {

/// Derive from it to follow an operation; the class itself ignores what it is told. Functions take a
/// `Progress*` that may be null.
class KOBASE_EXPORT Progress {
public:
    virtual ~Progress();

    /// The fraction done, from 0 to 1.
    virtual void set(double fraction);
};

/// Tells `progress`, if there is one.
inline void setProgress(Progress* progress, double fraction)
{
    if (progress != nullptr)
        progress->set(fraction);
}

}  // namespace koUtil
