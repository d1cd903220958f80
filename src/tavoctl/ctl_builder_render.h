#pragma once

#include <QStringList>
#include <QTextStream>

namespace tavo::ctl {

// "builder render TEXT [--format text|rtf|html|pdf] [--out PATH]": a command's output made on this
// computer, without a model. A PDF needs the QGuiApplication that main() makes for this command.
int builderRender(const QStringList& arguments, QTextStream& out, QTextStream& err);

} // namespace tavo::ctl
