#pragma once

#include "ovclicommand.h"

#include <QString>

namespace OVProject {
class Project;
class Timeline;
} // namespace OVProject

// kavot-cli transcript PROJECT --format csv|xlsx|srt|vtt|textgrid|eaf -o FILE [--coder NAME]:
// one coder's transcript in a file other tools read (EAF holds the coder's segments as well).
class OVCliTranscript : public OVCliCommand
{
public:
    QString name() const override { return QStringLiteral("transcript"); }
    QString summary() const override { return QStringLiteral("Export a coder's transcript (CSV, Excel, SubRip, WebVTT, TextGrid, ELAN)"); }
    void setup(QCommandLineParser &parser) const override;
    int run(const QCommandLineParser &parser) const override;

    // The timeline of `coder` (owner or id), or without one the project's own user's, else the
    // first; null after a message when there is none.
    static OVProject::Timeline *coderTimeline(const OVProject::Project &project, const QString &coder);
};
