#pragma once
#include <QObject>
#include <QPointer>

class Harvester;
class QAbstractItemView;
class QGroupBox;

// The address list's view: a double-click or Enter opens the selected address while the list
// shows Web/FTP addresses (its frame's caption says which kind it lists).
class AddressViews : public QObject {
    Q_OBJECT
public:
    AddressViews(Harvester &harvester, QAbstractItemView *view, QGroupBox *frame, QObject *parent = nullptr);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void openSelected();

    Harvester &harvester;
    QPointer<QAbstractItemView> m_view;
    QPointer<QGroupBox> m_frame;
};
