#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPlainTextEdit;
class QSpinBox;

namespace OVProject {
class Project;
}

// The project's header: title, description, id, video path and how it is stored, project type and
// the transcript's line width. accept() writes the fields into the project.
class OVProjectDetailsDlg : public QDialog
{
    Q_OBJECT
public:
    explicit OVProjectDetailsDlg(OVProject::Project *project, QWidget *parent = nullptr);

    void accept() override;

private:
    OVProject::Project *m_project;
    QLineEdit *m_title;
    QPlainTextEdit *m_description;
    QLineEdit *m_uuid;
    QLineEdit *m_videoPath;
    QCheckBox *m_relative;
    QComboBox *m_type;
    QSpinBox *m_textWidth;
    QCheckBox *m_noLimit;
};
