#pragma once

#include "media/ovmediainfo.h"

#include <QDialog>

class QLabel;
class QListWidget;
class QPushButton;

// The audio streams of the recording: which one plays, and which to take out of the file.
class OVEditAudioTracksDlg : public QDialog
{
    Q_OBJECT

public:
    explicit OVEditAudioTracksDlg(QWidget *parent = nullptr);

    // `playing`: the nth audio stream that the player plays.
    void setStreams(const OVMediaInfo &info, int playing);
    int selectedStream() const;
    void setSelectedStream(int nth);

Q_SIGNALS:
    void playRequested(int nth);
    void removeRequested(int nth);

private:
    void updateButtons();

    QLabel *m_file = nullptr;
    QListWidget *m_list = nullptr;
    QPushButton *m_play = nullptr;
    QPushButton *m_remove = nullptr;
    int m_playing = -1;
    bool m_hasVideo = false;
};
