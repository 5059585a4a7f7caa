#pragma once

#include <QWidget>

// The strip under the label rows that shows the project's audio tracks. Until tracks are loaded
// it says why it is empty; it draws the timeline cursor so the line runs through both parts.
class OVWaveformArea : public QWidget
{
    Q_OBJECT
public:
    explicit OVWaveformArea(QWidget *parent = nullptr);

    // x of the cursor in this widget's coordinates, or a negative value for none.
    void setCursorX(int x);
    void setLoading(bool loading);
    bool isLoading() const { return m_loading; }
    int trackCount() const { return 0; }
    QString message() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int m_cursorX = -1;
    bool m_loading = false;
};
