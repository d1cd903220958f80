#pragma once

#include "builder/builder_command.h"
#include "store/collections.h"

#include <QStringList>
#include <QTextStream>

#include <optional>

namespace tavo {
class Defaults;
} // namespace tavo

namespace tavo::ctl {

// A builder command made from what the user sees, with the shortcuts and records it may name.
struct VisibleBuilderCommand
{
    CustomBuilderCommand command;
    QList<Clip> clips;
    QList<CollectionRecord> records;
};

// Opens the signed-in profile and makes the builder command `typed` names; nothing after saying
// why on `err`.
std::optional<VisibleBuilderCommand> openBuilderCommand(const QString& typed, Defaults& defaults, QTextStream& err);

// "builder render TEXT [--format text|rtf|html|pdf] [--out PATH]": a command's output made on this
// computer, without a model. A PDF needs the QGuiApplication that main() makes for this command.
int builderRender(const QStringList& arguments, QTextStream& out, QTextStream& err);

} // namespace tavo::ctl
