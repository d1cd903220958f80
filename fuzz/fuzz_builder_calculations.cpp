#include "builder/calculations.h"

#include <QLocale>

#include <cstddef>
#include <cstdint>

// Formulas up to the first NUL, "key=value" lines after it. The input values come back as they
// were, and every result is a number with a point and two decimals.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString input = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const qsizetype nul = input.indexOf(QChar(0));
    const QString formulas = nul < 0 ? input : input.left(nul);
    tavo::BuilderValues values;
    if (nul >= 0) {
        for (const QString& line : input.mid(nul + 1).split(u'\n')) {
            const qsizetype equals = line.indexOf(u'=');
            values.insert(line.left(equals), equals < 0 ? QString() : line.mid(equals + 1));
        }
    }

    const tavo::BuilderCalculationResult result = tavo::resolveBuilderCalculations(formulas, values);
    for (auto it = result.values.cbegin(); it != result.values.cend(); ++it) {
        if (values.contains(it.key()) && it.key() != tavo::builderTokenKey(it.key())) {
            if (values.value(it.key()) != it.value()) {
                __builtin_trap();
            }
            continue;
        }
        if (values.contains(it.key()) && values.value(it.key()) == it.value()) {
            continue;
        }
        const QString& printed = it.value();
        bool ok = false;
        QLocale::c().toDouble(printed, &ok);
        if (!ok || printed.size() < 4 || printed[printed.size() - 3] != u'.') {
            __builtin_trap();
        }
    }
    const QStringList summary = result.summary.isEmpty() ? QStringList() : result.summary.split(u'\n');
    if (summary.size() > formulas.count(u'\n') + 1) {
        __builtin_trap();
    }
    return 0;
}
