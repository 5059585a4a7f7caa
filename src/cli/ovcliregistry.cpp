#include "ovcliregistry.h"

#include "ovclicheck.h"
#include "ovclinew.h"
#include "ovcliprobe.h"
#include "ovclidump.h"
#include "ovcliagreement.h"
#include "ovclisegments.h"
#include "ovclistats.h"
#include "ovclisync.h"
#include "ovcliimport.h"
#include "ovclitranscript.h"

std::vector<std::unique_ptr<OVCliCommand>> OVCliRegistry::commands()
{
    std::vector<std::unique_ptr<OVCliCommand>> all;
    all.push_back(std::make_unique<OVCliDump>());
    all.push_back(std::make_unique<OVCliCheck>());
    all.push_back(std::make_unique<OVCliProbe>());
    all.push_back(std::make_unique<OVCliNew>());
    all.push_back(std::make_unique<OVCliSegments>());
    all.push_back(std::make_unique<OVCliStats>());
    all.push_back(std::make_unique<OVCliAgreement>());
    all.push_back(std::make_unique<OVCliSync>());
    all.push_back(std::make_unique<OVCliTranscript>());
    all.push_back(std::make_unique<OVCliImport>());
    return all;
}

std::unique_ptr<OVCliCommand> OVCliRegistry::find(const QString &name)
{
    for (auto &c : commands()) {
        if (c->name() == name)
            return std::move(c);
    }
    return nullptr;
}
