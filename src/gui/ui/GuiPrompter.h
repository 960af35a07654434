#pragma once
#include "ui/Prompter.h"

// Real dialogs, parented to the active window.
class GuiPrompter : public Prompter {
public:
    Answer message(const QString &text, Icon icon, Buttons buttons, const QString &title,
                   std::optional<Answer> defaultAnswer) override;
    std::optional<QString> input(const QString &prompt, const QString &title, const QString &defaultText) override;
    QString openFileName(const QString &caption, const QString &dir, const QString &filter) override;
    QString saveFileName(const QString &caption, const QString &dir, const QString &filter) override;
    QString existingDirectory(const QString &caption, const QString &dir) override;

    // Once the program is told to end (SIGTERM), boxes are no longer shown: each takes its
    // default answer, input boxes and file dialogs are cancelled.
    void setClosing(bool closing) { m_closing = closing; }
    bool closing() const { return m_closing; }
    // Options of the file dialogs (QFileDialog::Option flags), e.g. DontUseNativeDialog.
    void setFileDialogOptions(int options) { m_fileOptions = options; }

private:
    bool m_closing = false;
    int m_fileOptions = 0;
};
