// Arbitrary bytes as "settings.ini": opening must never crash or hang, whatever the file holds,
// and every typed getter must give a usable value afterwards.
#include "settings/ovkeyboardsettings.h"
#include "settings/ovlabelingsettings.h"
#include "settings/ovoverlaysettings.h"
#include "settings/ovrecentprojects.h"
#include "settings/ovsettings.h"
#include "settings/ovuisettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cmath>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_settings_file";
    static char *argv[] = { name, nullptr };
    static QCoreApplication app(argc, argv);
    static QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("settings.ini"));
    // A damaged file is moved aside; clear those so the folder stays small.
    for (const QString &f : QDir(dir.path()).entryList(QDir::Files))
        QFile::remove(dir.filePath(f));
    {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly))
            std::abort();
        f.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    OVSettings settings;
    settings.open(path);
    if (!std::isfinite(settings.labeling()->leadOpenTime()) || !std::isfinite(settings.labeling()->leadCloseTime())
        || !std::isfinite(settings.labeling()->defaultSegmentDuration()))
        std::abort();
    (void)settings.labeling()->labelingMode();
    (void)settings.overlay()->color();
    (void)settings.overlay()->font();
    (void)settings.recentProjects()->recentProjects();
    (void)settings.keyboard()->shortcuts();
    (void)settings.ui()->waveformsHeight();
    return 0;
}
