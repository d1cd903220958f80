#include "tavoctl/ctl_commands.h"

namespace tavo::ctl {

int backup(const QStringList& /*arguments*/, QTextStream& /*out*/, QTextStream& err)
{
    err << "tavoctl: not available yet\n";
    return 2;
}

int restore(const QStringList& /*arguments*/, QTextStream& /*out*/, QTextStream& err)
{
    err << "tavoctl: not available yet\n";
    return 2;
}

} // namespace tavo::ctl
