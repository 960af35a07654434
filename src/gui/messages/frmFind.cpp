#include "gui/messages/frmFind.h"

#include "gui/app/frmMain.h"
#include "gui/messages/GridView.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

frmFind::frmFind(frmMain &main, GridView &grid)
    : QDialog(&main), m(main), g(grid)
{
    setObjectName(QStringLiteral("frmFind"));
    setWindowTitle(QStringLiteral("Find"));
    auto *l = new QVBoxLayout(this);
    txtSearch = new QLineEdit(m.opt.LastFind, this);
    txtSearch->setObjectName(QStringLiteral("txtSearch"));
    txtSearch->selectAll();
    l->addWidget(txtSearch);
    auto *buttons = new QHBoxLayout;
    cmdOK = new QPushButton(QStringLiteral("OK"), this);
    cmdOK->setObjectName(QStringLiteral("cmdOK"));
    cmdOK->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"), this);
    buttons->addStretch();
    buttons->addWidget(cmdOK);
    buttons->addWidget(cancel);
    l->addLayout(buttons);
    connect(txtSearch, &QLineEdit::textChanged, this, [this](const QString &t) {
        m.opt.LastFind = t;
        m.store().save(QStringLiteral("LastFind"), t);
    });
    connect(cmdOK, &QPushButton::clicked, this, &frmFind::ok);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    move(main.geometry().topLeft() + QPoint(500 / 15, 500 / 15));
}

void frmFind::ok()
{
    const QString text = txtSearch->text();
    if (text != m_previous) {
        cmdOK->setText(QStringLiteral("OK"));
        m_previous = text;
    }
    const bool first = cmdOK->text() != QLatin1String("Next");
    if (g.FindText(text, first))
        cmdOK->setText(QStringLiteral("Next"));
    else
        reject();
}
