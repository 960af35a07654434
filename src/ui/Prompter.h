#pragma once
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

class QWidget;

// Every message box, input box and file dialog of the program goes through a Prompter,
// so tests answer them from a script and batch runs print them instead of blocking.
class Prompter {
public:
    enum Icon { NoIcon, Information, Exclamation, Critical, Question };
    enum Buttons { Ok, OkCancel, YesNo, YesNoCancel };
    enum Answer { AnswerOk, AnswerCancel, AnswerYes, AnswerNo };

    virtual ~Prompter() = default;

    // title empty: the application title. defaultAnswer: what batch runs take; by default the
    // first button.
    virtual Answer message(const QString &text, Icon icon = NoIcon, Buttons buttons = Ok,
                           const QString &title = QString(),
                           std::optional<Answer> defaultAnswer = std::nullopt) = 0;
    // std::nullopt when cancelled
    virtual std::optional<QString> input(const QString &prompt, const QString &title = QString(),
                                         const QString &defaultText = QString()) = 0;
    // Empty result when cancelled.
    virtual QString openFileName(const QString &caption, const QString &dir, const QString &filter) = 0;
    virtual QString saveFileName(const QString &caption, const QString &dir, const QString &filter) = 0;
    virtual QString existingDirectory(const QString &caption, const QString &dir) = 0;

    static Answer firstAnswer(Buttons b);
    // The title a box shows: the application's when none is given.
    static QString titleOr(const QString &title);
    // Filters are written "Text (*.txt)|*.txt" (description and patterns, pairs separated by
    // "|"); Qt's dialogs take "Text (*.txt)" pairs separated by ";;". A filter without "|" is
    // taken to be in Qt's form already.
    static QString qtFileFilter(const QString &filter);
};

// Batch runs: prints every box to standard error and takes its default answer; input boxes and
// file dialogs are cancelled.
class BatchPrompter : public Prompter {
public:
    Answer message(const QString &text, Icon icon, Buttons buttons, const QString &title,
                   std::optional<Answer> defaultAnswer) override;
    std::optional<QString> input(const QString &prompt, const QString &title, const QString &defaultText) override;
    QString openFileName(const QString &caption, const QString &dir, const QString &filter) override;
    QString saveFileName(const QString &caption, const QString &dir, const QString &filter) override;
    QString existingDirectory(const QString &caption, const QString &dir) override;
};

// Tests: answers come from a queue (falling back to the default answer / cancel when empty)
// and every question is recorded.
class ScriptedPrompter : public Prompter {
public:
    struct Asked {
        QString kind;   // "message", "input", "open", "save", "dir"
        QString text;
        Icon icon = NoIcon;
        Buttons buttons = Ok;
        QString title;
    };
    QList<Asked> asked;
    QList<Answer> answers;            // for message()
    QList<std::optional<QString>> inputs;  // for input()
    QStringList files;                // for the three file dialogs ("" = cancel)

    Answer message(const QString &text, Icon icon, Buttons buttons, const QString &title,
                   std::optional<Answer> defaultAnswer) override;
    std::optional<QString> input(const QString &prompt, const QString &title, const QString &defaultText) override;
    QString openFileName(const QString &caption, const QString &dir, const QString &filter) override;
    QString saveFileName(const QString &caption, const QString &dir, const QString &filter) override;
    QString existingDirectory(const QString &caption, const QString &dir) override;

    QStringList texts() const;        // the texts of everything asked, in order
    bool wasAsked(const QString &text) const;
    void clear() { asked.clear(); }
};
