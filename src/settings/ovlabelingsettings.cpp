#include "settings/ovlabelingsettings.h"

#include <cmath>

namespace {
const QString kLeadOpen = QStringLiteral("leadOpenTime");
const QString kLeadClose = QStringLiteral("leadCloseTime");
const QString kMode = QStringLiteral("labelingMode");
const QString kDuration = QStringLiteral("defaultSegmentDuration");
const QString kLoopLength = QStringLiteral("loopLength");
} // namespace

OVLabelingSettings::OVLabelingSettings(QObject *parent) : OVSettingsGroup(QStringLiteral("LabelingSettings"), parent)
{
    addKey(kLeadOpen, QStringLiteral("2"));
    addKey(kLeadClose, QStringLiteral("2"));
    addKey(kMode, QStringLiteral("2"));
    addKey(kDuration, QStringLiteral("10"));
    addKey(kLoopLength, QStringLiteral("5"));
}

double OVLabelingSettings::number(const QString &key) const
{
    bool ok = false;
    const double v = value(key).toString().toDouble(&ok);
    if (ok && std::isfinite(v))
        return v;
    return defaultValue(key).toString().toDouble();
}

double OVLabelingSettings::leadOpenTime() const { return number(kLeadOpen); }
void OVLabelingSettings::setLeadOpenTime(double s) { setValue(kLeadOpen, QString::number(s)); }
double OVLabelingSettings::leadCloseTime() const { return number(kLeadClose); }
void OVLabelingSettings::setLeadCloseTime(double s) { setValue(kLeadClose, QString::number(s)); }
double OVLabelingSettings::defaultSegmentDuration() const { return number(kDuration); }
void OVLabelingSettings::setDefaultSegmentDuration(double s) { setValue(kDuration, QString::number(s)); }

double OVLabelingSettings::loopLength() const { return number(kLoopLength); }
void OVLabelingSettings::setLoopLength(double s) { setValue(kLoopLength, QString::number(s)); }

int OVLabelingSettings::labelingMode() const { return int(number(kMode)); }

void OVLabelingSettings::setLabelingMode(int mode)
{
    const bool modeChanged = mode != labelingMode();
    setValue(kMode, QString::number(mode));
    if (modeChanged)
        Q_EMIT labelingModeChanged();
}

void OVLabelingSettings::load(QSettings &settings)
{
    const int before = labelingMode();
    OVSettingsGroup::load(settings);
    if (labelingMode() != before)
        Q_EMIT labelingModeChanged();
}
