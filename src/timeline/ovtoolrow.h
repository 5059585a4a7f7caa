#pragma once

#include <QWidget>

class QBoxLayout;
class QHBoxLayout;

// A row of controls in two groups, leading and trailing, that puts the trailing group on a line
// of its own when the row is narrower than both groups side by side. The row asks its window
// only for the wider group's width, so a dock beside it can open wide enough to be read.
class OVToolRow : public QWidget
{
    Q_OBJECT
public:
    explicit OVToolRow(QWidget *parent = nullptr);

    QHBoxLayout *leading() const { return m_leading; }
    QHBoxLayout *trailing() const { return m_trailing; }
    bool isStacked() const;

    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void arrange(int width);

    QBoxLayout *m_outer;
    QHBoxLayout *m_leading;
    QHBoxLayout *m_trailing;
};
