#pragma once

#include "log/overror.h"
#include "project/projectsnapshot.h"
#include "project/ovreadbudget.h"
#include "project/serializer.h"

#include <QString>

// The JSON documents of project files and label-set files, optionally in the "CMP0" envelope:
// "CMP0", the MD5 of the compressed body (16 raw bytes), then the JSON deflated with a gzip
// wrapper. Readers accept wrapped and plain documents alike. Safe to use without a
// QCoreApplication and from any thread (no shared state).
class OVJsonSerializer : public OVProject::Serializer
{
public:
    static constexpr int DefaultCompressionLevel = 9;

    explicit OVJsonSerializer(bool compress = true, int level = DefaultCompressionLevel)
        : m_compress(compress)
        , m_level(level)
    {
    }

    bool compression() const { return m_compress; }
    void setCompression(bool on) { m_compress = on; }
    // zlib level of the envelope (1-9); readers do not depend on it.
    int compressionLevel() const { return m_level; }
    void setCompressionLevel(int level) { m_level = level; }

    // Error code of a load or import that the user cancelled (no message needs showing).
    static constexpr int Cancelled = 9;

    QByteArray writeProject(const OVProject::Project *project) const override;
    bool readProject(const QByteArray &data, OVProject::Project *project) const override;
    QByteArray writeTimeline(const OVProject::Timeline *timeline) const override;
    bool readTimeline(const QByteArray &data, OVProject::Timeline *timeline) const override;
    // The same documents from a snapshot, so that they can be made off the GUI thread.
    QByteArray writeProject(const OVProject::ProjectSnapshot::HeaderData &header) const;
    QByteArray writeTimeline(const OVProject::ProjectSnapshot::TimelineData &timeline) const;
    QByteArray writeLabelSet(const QList<OVProject::Label *> &labels) const override;
    bool readLabelSet(const QByteArray &data, QList<OVProject::Label *> *labels) const override;

    // The readers behind the ones above, which every path (loading, importing, the command line)
    // goes through. They refuse rather than guess: a member of the wrong JSON type, bytes after the
    // document, text that is not UTF-8, a node without an id or with an id used before in the
    // document, negative times or an end before its start. `why` then names the place (label,
    // segment, member) and the check. `budget` bounds what the document may inflate to and build
    // (null: a budget of its own, sized by `data`). The target is left as it was on failure.
    bool readProject(const QByteArray &data, OVProject::Project *project, OVReadBudget *budget, QString *why) const;
    bool readTimeline(const QByteArray &data, OVProject::Timeline *timeline, OVReadBudget *budget, QString *why) const;
    bool readLabelSet(
        const QByteArray &data, QList<OVProject::Label *> *labels, OVReadBudget *budget, QString *why) const;

    // Label-set files (".kvtl"). Writing replaces the file atomically.
    static QString labelSetFileFilter() { return QStringLiteral("Kavot Timeline (*.kvtl)"); }
    OV::Error saveLabelSetFile(const QString &path, const QList<OVProject::Label *> &labels) const;
    // The message names the file and, after an empty line, what was wrong with it. `budget` (may
    // be null) carries the cancel flag of an import running on a worker.
    static OV::Error loadLabelSetFile(
        const QString &path, QList<OVProject::Label *> *labels, OVReadBudget *budget = nullptr);

    // The envelope on its own. unwrap() copies plain documents through unchanged and fails on a
    // wrapped one whose digest does not match, whose body does not inflate completely or is
    // followed by more bytes, that inflates to nothing or beyond what the budget allows.
    static QByteArray wrap(const QByteArray &json, int level = DefaultCompressionLevel);
    static bool unwrap(const QByteArray &document, QByteArray *json);
    static bool unwrap(const QByteArray &document, QByteArray *json, OVReadBudget *budget, QString *why);
    static bool isWrapped(const QByteArray &document);

    // Times in files: seconds with exactly three decimals.
    static QString formatTime(double seconds);

private:
    QByteArray finish(const std::string &json) const;

    bool m_compress;
    int m_level;
};
