#pragma once

#include "platform/pasteboard.h"

namespace tavo::test {

// A clipboard whose text a test sets directly, counting how often it was read, and keeping what
// was last written to it.
class FakePasteboard : public Pasteboard
{
public:
    QString text;
    mutable int reads = 0;
    std::unique_ptr<QMimeData> written;

    QString string() const override
    {
        ++reads;
        return text;
    }

    void write(std::unique_ptr<QMimeData> data) override
    {
        text = data ? data->text() : QString();
        written = std::move(data);
    }
};

} // namespace tavo::test
