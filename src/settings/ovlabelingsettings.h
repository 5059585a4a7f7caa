#pragma once

#include "settings/ovsettingsgroup.h"

// Parameters of keyboard coding. They are stored as text and read as numbers; a value that does
// not read as a number gives the default.
class OVLabelingSettings : public OVSettingsGroup
{
    Q_OBJECT
public:
    enum LabelingMode { SinglePressMode = 1, DoublePressMode = 2 };

    explicit OVLabelingSettings(QObject *parent = nullptr);

    double leadOpenTime() const;
    void setLeadOpenTime(double seconds);
    double leadCloseTime() const;
    void setLeadCloseTime(double seconds);
    int labelingMode() const;
    void setLabelingMode(int mode);
    bool isDoublePressMode() const { return labelingMode() == DoublePressMode; }
    double defaultSegmentDuration() const;
    void setDefaultSegmentDuration(double seconds);
    // How long the window is that transcribing loops over, in seconds.
    double loopLength() const;
    void setLoopLength(double seconds);

    void load(QSettings &settings) override;

Q_SIGNALS:
    void labelingModeChanged();

private:
    double number(const QString &key) const;
};
