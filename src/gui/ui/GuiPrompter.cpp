#include "gui/ui/GuiPrompter.h"

#include <QApplication>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>


// ---------------------------------------------------------------- GuiPrompter

Prompter::Answer GuiPrompter::message(const QString &text, Icon icon, Buttons buttons,
                                      const QString &title, std::optional<Answer> defaultAnswer)
{
    if (m_closing)
        return defaultAnswer.value_or(firstAnswer(buttons));
    QMessageBox box(QApplication::activeWindow());
    box.setWindowTitle(titleOr(title));
    box.setText(text);
    switch (icon) {
    case Information: box.setIcon(QMessageBox::Information); break;
    case Exclamation: box.setIcon(QMessageBox::Warning); break;
    case Critical: box.setIcon(QMessageBox::Critical); break;
    case Question: box.setIcon(QMessageBox::Question); break;
    case NoIcon: break;
    }
    QMessageBox::StandardButtons sb;
    switch (buttons) {
    case Ok: sb = QMessageBox::Ok; break;
    case OkCancel: sb = QMessageBox::Ok | QMessageBox::Cancel; break;
    case YesNo: sb = QMessageBox::Yes | QMessageBox::No; break;
    case YesNoCancel: sb = QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel; break;
    }
    box.setStandardButtons(sb);
    const Answer def = defaultAnswer.value_or(firstAnswer(buttons));
    const QMessageBox::StandardButton defButton = def == AnswerYes ? QMessageBox::Yes
        : def == AnswerNo ? QMessageBox::No
        : def == AnswerCancel ? QMessageBox::Cancel : QMessageBox::Ok;
    box.setDefaultButton(defButton);
    switch (box.exec()) {
    case QMessageBox::Yes: return AnswerYes;
    case QMessageBox::No: return AnswerNo;
    case QMessageBox::Ok: return AnswerOk;
    default: return AnswerCancel;
    }
}

std::optional<QString> GuiPrompter::input(const QString &prompt, const QString &title, const QString &defaultText)
{
    if (m_closing)
        return std::nullopt;
    bool ok = false;
    const QString s = QInputDialog::getText(QApplication::activeWindow(), titleOr(title), prompt,
                                            QLineEdit::Normal, defaultText, &ok);
    if (!ok)
        return std::nullopt;
    return s;
}

QString GuiPrompter::openFileName(const QString &caption, const QString &dir, const QString &filter)
{
    if (m_closing)
        return {};
    return QFileDialog::getOpenFileName(QApplication::activeWindow(), caption, dir, qtFileFilter(filter), nullptr,
                                        QFileDialog::Options(m_fileOptions));
}

QString GuiPrompter::saveFileName(const QString &caption, const QString &dir, const QString &filter)
{
    if (m_closing)
        return {};
    return QFileDialog::getSaveFileName(QApplication::activeWindow(), caption, dir, qtFileFilter(filter), nullptr,
                                        QFileDialog::Options(m_fileOptions));
}

QString GuiPrompter::existingDirectory(const QString &caption, const QString &dir)
{
    if (m_closing)
        return {};
    return QFileDialog::getExistingDirectory(QApplication::activeWindow(), caption, dir,
                                             QFileDialog::ShowDirsOnly | QFileDialog::Options(m_fileOptions));
}
