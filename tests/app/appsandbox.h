#pragma once

#include <QDir>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QTemporaryDir>

// Private data, config and runtime folders for starting the real executable, so a test sees
// exactly what a user starting Kavot for the first time would, and leaves nothing behind.
class AppSandbox
{
public:
    AppSandbox()
    {
        QDir root(m_dir.path());
        root.mkpath("data");
        root.mkpath("config");
        root.mkpath("run");
        QFile::setPermissions(root.filePath("run"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    ~AppSandbox()
    {
        for (QProcess *p : std::as_const(m_processes)) {
            if (p->state() != QProcess::NotRunning) {
                p->kill();
                p->waitForFinished(5000);
            }
            delete p;
        }
    }
    QString path(const QString &rel) const { return QDir(m_dir.path()).filePath(rel); }
    QString dataDir() const { return path("data/Kavot"); }
    QString logPath() const { return dataDir() + "/main.log"; }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "offscreen");
        env.insert("XDG_DATA_HOME", m_dataHome.isEmpty() ? path("data") : m_dataHome);
        env.insert("XDG_CONFIG_HOME", path("config"));
        env.insert("XDG_RUNTIME_DIR", path("run"));
        env.insert("HOME", m_dir.path());
        for (auto it = m_extra.cbegin(); it != m_extra.cend(); ++it)
            env.insert(it.key(), it.value());
        return env;
    }
    void setDataHome(const QString &p) { m_dataHome = p; }
    void setEnv(const QString &name, const QString &value) { m_extra.insert(name, value); }

    QProcess *start(const QStringList &args = {})
    {
        auto *p = new QProcess;
        p->setProcessEnvironment(environment());
        p->start(executable(), args);
        m_processes << p;
        return p;
    }

    QString log() const
    {
        QFile f(logPath());
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }

    static QString buildDir() { return qEnvironmentVariable("KAVOT_BUILD_DIR"); }
    static QString executable() { return buildDir() + "/src/app/kavot"; }

private:
    QTemporaryDir m_dir;
    QString m_dataHome;
    QHash<QString, QString> m_extra;
    QList<QProcess *> m_processes;
};
