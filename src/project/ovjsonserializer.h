#pragma once

#include "log/overror.h"
#include "project/projectsnapshot.h"
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

    QByteArray writeProject(const OVProject::Project *project) const override;
    bool readProject(const QByteArray &data, OVProject::Project *project) const override;
    QByteArray writeTimeline(const OVProject::Timeline *timeline) const override;
    bool readTimeline(const QByteArray &data, OVProject::Timeline *timeline) const override;
    // The same documents from a snapshot, so that they can be made off the GUI thread.
    QByteArray writeProject(const OVProject::ProjectSnapshot::HeaderData &header) const;
    QByteArray writeTimeline(const OVProject::ProjectSnapshot::TimelineData &timeline) const;
    QByteArray writeLabelSet(const QList<OVProject::Label *> &labels) const override;
    bool readLabelSet(const QByteArray &data, QList<OVProject::Label *> *labels) const override;

    // Label-set files (".kvtl"). Writing replaces the file atomically.
    static QString labelSetFileFilter() { return QStringLiteral("Kavot Timeline (*.kvtl)"); }
    OV::Error saveLabelSetFile(const QString &path, const QList<OVProject::Label *> &labels) const;
    static OV::Error loadLabelSetFile(const QString &path, QList<OVProject::Label *> *labels);

    // The envelope on its own. unwrap() copies plain documents through unchanged and fails on a
    // wrapped one whose digest does not match, whose body does not inflate completely, that
    // inflates to nothing or to more than MaxInflatedSize.
    static constexpr qint64 MaxInflatedSize = qint64(1) << 30;
    static QByteArray wrap(const QByteArray &json, int level = DefaultCompressionLevel);
    static bool unwrap(const QByteArray &document, QByteArray *json);
    static bool isWrapped(const QByteArray &document);

    // Times in files: seconds with exactly three decimals.
    static QString formatTime(double seconds);

private:
    QByteArray finish(const std::string &json) const;

    bool m_compress;
    int m_level;
};
