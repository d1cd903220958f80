#include "tavoctl/ctl_commands.h"

namespace tavo::ctl {

int browser(const QStringList& /*arguments*/, QTextStream& /*out*/, QTextStream& err)
{
    err << "tavoctl: not available yet\n";
    return 2;
}

} // namespace tavo::ctl
