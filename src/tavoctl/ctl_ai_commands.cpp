#include "tavoctl/ctl_commands.h"

namespace tavo::ctl {

int ai(const QStringList& /*arguments*/, QTextStream& /*in*/, QTextStream& /*out*/, QTextStream& err)
{
    err << "tavoctl: not available yet\n";
    return 2;
}

int prompt(const QStringList& /*arguments*/, QTextStream& /*in*/, QTextStream& /*out*/, QTextStream& err)
{
    err << "tavoctl: not available yet\n";
    return 2;
}

} // namespace tavo::ctl
