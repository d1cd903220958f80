#include "builder/builder_command.h"

#include <cstddef>
#include <cstdint>

using namespace tavo;

namespace {

void check(bool holds)
{
    if (!holds) {
        __builtin_trap();
    }
}

// Card texts split back into exactly their values.
void roundTrip(const QStringList& values)
{
    QStringList quoted;
    for (const QString& value : values) {
        quoted.append(quoteBuilderValue(value));
    }
    check(splitBuilderCommand(quoted.join(u'-')) == values);
}

} // namespace

// The input makes an app and a command: byte 0 chooses the slot kinds, byte 1 the slot count,
// then lines: the prefix, aliases for the collections, and last the typed command. Whatever is
// typed, a match has one value per slot and a key made of them; a finished command written as the
// card writes it matches again, in the format the card named.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const unsigned kinds = data[0];
    const int slotCount = data[1] % 7;
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data + 2), static_cast<qsizetype>(size - 2));
    QStringList lines = text.split(u'\n');
    roundTrip(lines);

    QString prefix;
    for (const QChar c : lines.takeFirst().toLower()) {
        if ((c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') || c == u'-') {
            prefix += c;
        }
    }
    if (prefix.isEmpty()) {
        prefix = QStringLiteral("p");
    }
    const QString typed = lines.isEmpty() ? QString() : lines.takeLast();

    QList<BuilderCommandApp> apps(1);
    BuilderCommandApp& app = apps[0];
    app.name = QStringLiteral("Fuzz");
    app.prefix = prefix;
    app.format = QStringLiteral("PDF");
    for (int slot = 0; slot < slotCount; ++slot) {
        const bool collection = (kinds >> slot) & 1;
        app.slotKinds.append(collection ? builderSlotCollection : builderSlotVariable);
        app.slotNames.append(QStringLiteral("S%1").arg(slot % 3)); // collections may share aliases
    }
    QList<CollectionRecord> records;
    for (qsizetype index = 0; index < lines.size() && index < 64; ++index) {
        CollectionRecord record;
        record.collection = QStringLiteral("s%1").arg(index % 3);
        record.alias = lines[index];
        records.append(record);
    }
    const BuilderCommandSnapshot snapshot(apps, {}, records);

    const std::optional<CustomBuilderCommand> command = snapshot.command(typed);
    if (!command) {
        return 0;
    }
    check(command->slotValues.size() == slotCount);
    check(command->fields.size() + command->collections.size() == slotCount);
    check(command->values.size() == command->fields.size());
    check(command->collectionValues.size() == command->collections.size());
    check(command->key.startsWith(prefix));
    if (!command->isComplete() || slotCount == 0) {
        return 0;
    }
    QString card = u'\\' + prefix;
    for (const QString& value : command->slotValues) {
        card += u'-' + quoteBuilderValue(value);
    }
    const QString code = builderFormatCode(command->format);
    card += u'-' + code;
    const std::optional<CustomBuilderCommand> again = snapshot.command(card);
    check(again.has_value());
    check(again->slotValues.size() == slotCount);
    check(again->format == builderFormatForWord(code));
    return 0;
}
