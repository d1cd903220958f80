#include "exchange/csv.h"

#include <cstddef>
#include <cstdint>

// Whatever bytes a CSV file holds, decoding and parsing never crash, no empty row survives, and
// the rows written back with every cell quoted parse to the same rows.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const tavo::CSVRows rows = tavo::parseCSV(tavo::decodeCSVBytes(bytes));

    QString written;
    for (const QStringList& row : rows) {
        bool empty = true;
        QStringList cells;
        for (QString cell : row) {
            empty = empty && cell.isEmpty();
            if (cell.contains(u'\r')) {
                __builtin_trap(); // line breaks in cells are line feeds
            }
            cells.append(u'"' + cell.replace(u'"', QStringLiteral("\"\"")) + u'"');
        }
        if (empty) {
            __builtin_trap();
        }
        written += cells.join(u',') + u'\n';
    }
    if (tavo::parseCSV(written) != rows) {
        __builtin_trap();
    }
    return 0;
}
