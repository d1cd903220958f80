#pragma once

#include "platform/pasteboard.h"

namespace tavo::test {

// A clipboard whose text a test sets directly, counting how often it was read.
class FakePasteboard : public Pasteboard
{
public:
    QString text;
    mutable int reads = 0;

    QString string() const override
    {
        ++reads;
        return text;
    }
};

} // namespace tavo::test
