// The post window without a server: checks, validation and remembered fields.
#include "app/Commands.h"
#include "gui/app/frmMain.h"
#include "post/Poster.h"
#include "gui/post/PostWindows.h"
#include "settings/SettingsStore.h"
#include "ui/ItemList.h"
#include "ui/Prompter.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>
#include <QtTest>

class TstPostWindow : public QObject {
    Q_OBJECT
private slots:
    void init() { QFile::remove(SettingsStore().fileName()); }

    void checksPerScope()
    {
        ScriptedPrompter p;
        frmMain w(&p, frmMain::Options{true});
        // current group: only in a message listing with the grid enabled
        QVERIFY(!w.poster->OpenPost(Poster::CurrentGroup));
        QCOMPARE(p.asked.last().text, QStringLiteral("Must Be in Message Listing to Use This Function"));
        QCOMPARE(p.asked.last().icon, Prompter::Exclamation);
        QCOMPARE(p.asked.last().title, QStringLiteral("Newsdredge!"));
        QVERIFY(!w.postWindows->window());   // unloaded again
        w.S.CurrentGroup = QStringLiteral("alt.test");
        w.UpdateCaption(nd::Caption::Messages);
        w.MSHResults->setEnabled(false);
        QVERIFY(!w.poster->OpenPost(Poster::CurrentGroup));
        w.MSHResults->setEnabled(true);
        QVERIFY(w.poster->OpenPost(Poster::CurrentGroup));
        QVERIFY(w.postWindows->window()->isVisible());
        w.postWindows->window()->close();
        QVERIFY(!w.postWindows->window());

        // selected groups and favourites: a selection is needed
        w.MenuOnOff(nd::Scope::SelectedGroups, true);   // as a loaded group list leaves it
        const struct { ItemList *list; const char *item, *command; Poster::Scope scope; } scopes[] = {
            {w.lstGroups, "alt.a (0)", "menuPostG", Poster::SelectedGroups},
            {w.lstFavorites, "alt.a (news1)", "menuPostF", Poster::SelectedFavorites}};
        for (const auto &s : scopes) {
            p.clear();
            s.list->addMany({QLatin1String(s.item)});
            w.action(QLatin1String(s.command))->trigger();
            QCOMPARE(p.texts(), QStringList{"Please Select Item(s) First"});
            s.list->setSelected(0, true);
            QVERIFY(w.poster->OpenPost(s.scope));
            w.postWindows->window()->close();
        }
    }

    void validation()
    {
        ScriptedPrompter p;
        frmMain w(&p, frmMain::Options{true});
        w.lstGroups->addMany({"alt.a (0)"});
        w.lstGroups->setSelected(0, true);
        QVERIFY(w.poster->OpenPost(Poster::SelectedGroups));
        frmPostMsg *pw = w.postWindows->window();
        pw->txtName->setText(QStringLiteral("Ann"));
        pw->txtEmail->setText(QStringLiteral("ann@x.test"));
        pw->txtSubject->setText(QStringLiteral("   "));
        pw->txtMessage->setPlainText(QStringLiteral("text"));
        pw->txtSig->setPlainText(QStringLiteral("sig"));
        pw->cmdOK->click();
        QCOMPARE(p.texts(), QStringList{"Please enter name, email and subject."});
        QCOMPARE(p.asked.last().icon, Prompter::Critical);
        // nothing was appended, nothing posted
        QCOMPARE(pw->txtMessage->toPlainText(), QStringLiteral("text"));
        QCOMPARE(pw->status(1), QString());

        // Enter on OK checks the address first
        p.clear();
        pw->txtEmail->setText(QStringLiteral("ann-at-x"));
        QTest::keyClick(pw->cmdOK, Qt::Key_Return);
        QCOMPARE(p.texts(), QStringList{"Invalid Email Address!"});
        QCOMPARE(p.asked.last().icon, Prompter::Exclamation);

        // a direct call with an empty subject is refused as well
        p.clear();
        pw->cmdPostMessage(QString(), QStringLiteral("x"));
        QCOMPARE(p.texts(), QStringList{"Please enter subject."});
    }

    void fieldsAreRemembered()
    {
        const QStringList keys = {"Name", "Email Address", "Subject", "Signature"};
        const QStringList stored = {"Stored Name", "stored@x.test", "Stored subject", "Stored sig"};
        {
            SettingsStore st;
            for (int i = 0; i < keys.size(); ++i)
                st.save(keys[i], stored[i]);
            st.sync();
        }
        ScriptedPrompter p;
        frmMain w(&p, frmMain::Options{true});
        w.lstGroups->addMany({"alt.a (0)"});
        w.lstGroups->setSelected(0, true);
        QVERIFY(w.poster->OpenPost(Poster::SelectedGroups));
        frmPostMsg *pw = w.postWindows->window();
        QCOMPARE((QStringList{pw->txtName->text(), pw->txtEmail->text(), pw->txtSubject->text(), pw->txtSig->toPlainText()}), stored);
        // the signature is saved as it is typed
        pw->txtSig->setPlainText(QStringLiteral("New sig"));
        QCOMPARE(w.store().get(QStringLiteral("Signature")), QStringLiteral("New sig"));
        pw->txtName->setText(QStringLiteral("New Name"));
        pw->txtEmail->setText(QStringLiteral("new@x.test"));
        pw->txtSubject->setText(QStringLiteral("New subject"));
        pw->move(150, 90);
        pw->close();
        QCOMPARE((QStringList{w.store().get(keys[0]), w.store().get(keys[1]), w.store().get(keys[2])}),
                 (QStringList{"New Name", "new@x.test", "New subject"}));
        QVERIFY(w.store().contains(QStringLiteral("PTop")));
        QVERIFY(w.store().contains(QStringLiteral("PLeft")));
        // the main window writes the same keys at shutdown: it has the new values
        QCOMPARE(w.opt.Name, QStringLiteral("New Name"));
        QCOMPARE(w.opt.EmailAddress, QStringLiteral("new@x.test"));
    }
};

QTEST_MAIN(TstPostWindow)
#include "tst_postwindow.moc"
