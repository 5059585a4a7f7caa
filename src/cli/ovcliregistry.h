#pragma once

#include "ovclicommand.h"

#include <memory>
#include <vector>

// The sub-commands of kavot-cli, in the order the help lists them.
class OVCliRegistry
{
public:
    static std::vector<std::unique_ptr<OVCliCommand>> commands();
    static std::unique_ptr<OVCliCommand> find(const QString &name);
};
