#pragma once

#include "NvxQtCommon/discovery/NvxSerialConnDialog.h"
#include "tests/support/Patience.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>

#include <memory>

/// A dialog as a user sees it, and what it says.
class DialogFixture
{
public:
    explicit DialogFixture(QWidget* parent = nullptr)
        : m_dialog(std::make_unique<NvxSerialConnDialog>(parent)),
          m_accepted(m_dialog.get(), &NvxSerialConnDialog::deviceAccepted),
          m_finished(m_dialog.get(), &QDialog::finished)
    {
        m_dialog->show();
        m_dialog->activateWindow();
    }
    bool isReady() { return QTest::qWaitForWindowActive(m_dialog.get(), kPatienceMs); }

    NvxSerialConnDialog* operator->() const { return m_dialog.get(); }
    NvxSerialConnDialog* get() const { return m_dialog.get(); }
    template <class Widget> Widget* part(const char* name) const
    {
        return m_dialog->findChild<Widget*>(QLatin1String(name));
    }
    QListWidget* list() const { return part<QListWidget>("lwDevices"); }
    QSpinBox* number() const { return part<QSpinBox>("sbComPort"); }
    QPushButton* check() const { return part<QPushButton>("btnManualConnect"); }
    QDialogButtonBox* box() const { return part<QDialogButtonBox>("buttonBox"); }
    QString message() const { return part<QLabel>("lblMessage")->text(); }
    QAbstractButton* button(const char* text) const
    {
        for (QAbstractButton* button : box()->buttons()) {
            if (button->text().remove(u'&') == QLatin1String(text))
                return button;
        }
        qFatal("no button %s", text);
    }
    QStringList rows() const
    {
        QStringList rows;
        for (int i = 0; i < list()->count(); ++i)
            rows << list()->item(i)->data(Qt::UserRole).toString() + u' ' + list()->item(i)->text();
        return rows;
    }
    /// A recorder on this port is listed, wherever: those of several ports come in any order, and a cancelled
    /// scan's too.
    bool lists(const QString& port) const
    {
        for (int i = 0; i < list()->count(); ++i) {
            if (list()->item(i)->data(Qt::UserRole).toString() == port)
                return true;
        }
        return false;
    }
    void click(QWidget* widget) const { QTest::mouseClick(widget, Qt::LeftButton); }
    void clickRow(int row) const
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {},
                          list()->visualItemRect(list()->item(row)).center());
    }
    bool scanEnds(const QString& text)
    {
        return QTest::qWaitFor([&] { return message() == text; }, kPatienceMs);
    }
    std::shared_ptr<NvxDevice> device() const
    {
        return m_accepted.value(0).value(0).value<std::shared_ptr<NvxDevice>>();
    }

    std::unique_ptr<NvxSerialConnDialog> m_dialog;
    QSignalSpy m_accepted;
    QSignalSpy m_finished;
};
