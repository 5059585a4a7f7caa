#include "settings/ovsettings.h"

#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "settings/ovoverlaysettings.h"
#include "settings/ovrecentprojects.h"
#include "settings/ovsettingslogging.h"
#include "settings/ovuisettings.h"
#include "settings/ovuserinfosettings.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSettings>
#include <QTemporaryFile>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
QPointer<OVSettings> s_instance;

// QSettings decodes "@Variant(...)" values with QDataStream, which trusts the lengths inside: a
// damaged file could make it allocate without bound. We never write such values, so lines holding
// one are dropped before QSettings sees a file. `dropped` counts them.
QByteArray withoutVariantLines(const QByteArray &content, int *dropped)
{
    *dropped = 0;
    if (!content.contains("@Variant("))
        return content;
    QByteArray kept;
    for (const QByteArray &line : content.split('\n')) {
        if (line.contains("@Variant(")) {
            ++*dropped;
            continue;
        }
        kept += line + '\n';
    }
    return kept;
}
} // namespace

OVSettings::OVSettings(QObject *parent)
    : QObject(parent),
      m_keyboard(new OVKeyboardSettings(this)),
      m_overlay(new OVOverlaySettings(this)),
      m_userInfo(new OVUserInfoSettings(this)),
      m_labeling(new OVLabelingSettings(this)),
      m_recent(new OVRecentProjects(this)),
      m_ui(new OVUISettings(this))
{
    m_saveTimer.setSingleShot(true);
    m_saveTimer.setInterval(0);
    connect(&m_saveTimer, &QTimer::timeout, this, &OVSettings::saveNow);
    for (OVSettingsGroup *g : groups())
        connect(g, &OVSettingsGroup::changed, this, &OVSettings::onGroupChanged);
    s_instance = this;
}

OVSettings::~OVSettings()
{
    if (m_saveTimer.isActive())
        saveNow();
}

OVSettings *OVSettings::instance() { return s_instance; }

QList<OVSettingsGroup *> OVSettings::groups() const
{
    return { m_keyboard, m_overlay, m_userInfo, m_labeling, m_recent, m_ui };
}

bool OVSettings::open(const QString &iniPath)
{
    m_path = iniPath;
    m_lastError.clear();
    m_movedAside.clear();
    QFileInfo info(iniPath);
    if (!QDir().mkpath(info.absolutePath()))
        m_lastError = QStringLiteral("Settings folder cannot be made: %1").arg(info.absolutePath());
    else if (info.exists() && !info.isReadable())
        m_lastError = QStringLiteral("Settings file cannot be read: %1").arg(iniPath);

    QString readPath = iniPath;
    QTemporaryFile filtered;
    if (m_lastError.isEmpty() && info.exists()) {
        QFile in(iniPath);
        if (info.size() > MaxFileSize) {
            m_lastError = QStringLiteral("Settings file is too large to be a settings file: %1").arg(iniPath);
        } else if (!in.open(QIODevice::ReadOnly)) {
            m_lastError = QStringLiteral("Settings file cannot be read: %1").arg(iniPath);
        } else {
            int dropped = 0;
            const QByteArray kept = withoutVariantLines(in.readAll(), &dropped);
            if (dropped > 0) {
                qCWarning(lcSettings).noquote() << "Settings:" << dropped << "unusable line(s) of" << iniPath << "ignored";
                if (filtered.open() && filtered.write(kept) == kept.size() && filtered.flush())
                    readPath = filtered.fileName();
                else
                    m_lastError = QStringLiteral("Settings file cannot be read: %1").arg(iniPath);
            }
        }
    }

    bool ok = m_lastError.isEmpty();
    if (ok) {
        QSettings settings(readPath, QSettings::IniFormat);
        settings.allKeys(); // parsing is lazy; make a damaged file show up in status() now
        if (settings.status() != QSettings::NoError) {
            m_lastError = QStringLiteral("Settings file is damaged: %1").arg(iniPath);
            ok = false;
        } else {
            m_loading = true;
            for (OVSettingsGroup *g : groups())
                g->load(settings);
            m_loading = false;
        }
    }
    if (!ok) {
        qCWarning(lcSettings).noquote() << m_lastError << "- starting with default settings";
        // Keep the damaged file for the user instead of overwriting it at the next save.
        const QString aside = iniPath + QStringLiteral(".damaged-")
            + QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-hhmmss"));
        if (QFile::rename(iniPath, aside)) {
            m_movedAside = aside;
            qCWarning(lcSettings).noquote() << "Damaged settings file moved to" << aside;
        }
    } else {
        qCInfo(lcSettings).noquote() << "Settings loaded from" << iniPath;
    }
    m_saveTimer.stop();
    return ok;
}

bool OVSettings::saveNow()
{
    m_saveTimer.stop();
    if (m_path.isEmpty())
        return false;
    const QFileInfo info(m_path);
    QString reason;
    if (!QFileInfo(info.absolutePath()).isWritable())
        reason = QStringLiteral("its folder cannot be written");
    else if (info.exists() && !info.isWritable())
        reason = QStringLiteral("the file is read-only");
    if (reason.isEmpty()) {
        // QSettings reads the file it writes to, every line of it, the unusable ones open() left
        // out included. It writes a copy of what was usable instead, with the keys of sections
        // this version does not know, and the copy is renamed over the file: a save that is
        // killed half-way leaves the old file whole.
        QByteArray kept;
        QFile old(m_path);
        if (info.exists() && info.size() <= MaxFileSize && old.open(QIODevice::ReadOnly)) {
            int dropped = 0;
            kept = withoutVariantLines(old.readAll(), &dropped);
        }
        QTemporaryFile copy(m_path + QStringLiteral(".XXXXXX"));
        if (!copy.open() || copy.write(kept) != kept.size() || !copy.flush()) {
            reason = QStringLiteral("the file cannot be written");
        } else {
            copy.close();
            QSettings settings(copy.fileName(), QSettings::IniFormat);
            for (OVSettingsGroup *g : groups())
                g->save(settings);
            settings.sync();
            if (settings.status() != QSettings::NoError)
                reason = QStringLiteral("the file cannot be written");
            else if (::rename(QFile::encodeName(copy.fileName()).constData(), QFile::encodeName(m_path).constData()) != 0)
                reason = QStringLiteral("the file cannot be replaced (%1)").arg(QString::fromLocal8Bit(std::strerror(errno)));
            else
                copy.setAutoRemove(false);
        }
    }
    if (!reason.isEmpty()) {
        const QString message = QStringLiteral("Settings could not be saved to %1: %2.").arg(m_path, reason);
        qCWarning(lcSettings).noquote() << message;
        Q_EMIT saveFailed(message);
        return false;
    }
    return true;
}

void OVSettings::onGroupChanged()
{
    if (!m_loading && !m_path.isEmpty())
        m_saveTimer.start();
}
