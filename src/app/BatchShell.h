#pragma once
#include "app/Shell.h"

#include <QHash>

// The shell of batch runs: no window. Status texts of panels 1 and 2 go to standard error
// (each once, when it changes), commands only keep their state, and nothing is shown.
class BatchShell final : public Shell {
public:
    explicit BatchShell(Prompter *prompter, QObject *parent = nullptr);

    void setStatus(int panel, const QString &text) override;
    QString status(int panel) const override;
    void setProgressRange(int minimum, int maximum) override;
    void setProgress(int value) override { m_progress = value; }
    int progress() const override { return m_progress; }
    int progressMinimum() const override { return m_progressMin; }
    int progressMaximum() const override { return m_progressMax; }
    void SetMenuState(nd::Cmd command, bool enabled) override;
    bool menuState(nd::Cmd command) const override;
    void setConnectedLook(bool) override {}
    void UpdateCaption(nd::Caption) override {}
    void setViewEnabled(nd::View view, bool enabled) override;
    bool viewEnabled(nd::View view) const override;
    void setBusy(bool) override {}
    void OpenDocument(const QString &target) override;

private:
    QString m_panels[3];
    int m_progress = 0, m_progressMin = 0, m_progressMax = 100;
    QHash<int, bool> m_commands;
    QHash<int, bool> m_views;
};
