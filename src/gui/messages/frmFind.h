#pragma once
#include <QDialog>

class frmMain;
class GridView;
class QLineEdit;
class QPushButton;

// The Find dialog: OK finds the first match, then reads "Next" and finds the next one.
class frmFind : public QDialog {
    Q_OBJECT
public:
    frmFind(frmMain &m, GridView &grid);
    QLineEdit *txtSearch = nullptr;
    QPushButton *cmdOK = nullptr;
    void ok();

private:
    frmMain &m;
    GridView &g;
    QString m_previous;
};
