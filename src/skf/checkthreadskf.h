#ifndef TWKEY_CHECKTHREADSKF_H
#define TWKEY_CHECKTHREADSKF_H

#include <QString>
#include <QThread>

class KeyDriverSKF;

// A device monitor thread for an SKF driver. Nothing starts it: its body is
// a single enumeration, kept for a host that wants to build on it.
class CheckThreadSKF : public QThread
{
    Q_OBJECT
public:
    CheckThreadSKF(KeyDriverSKF *driver, QObject *parent = nullptr);
    ~CheckThreadSKF() override;

    void setQuit(bool quit);
    bool needQuit() const;

signals:
    void keyEvent(QString devName, bool insert);

protected:
    void run() override;

private:
    KeyDriverSKF *m_driver;
    bool m_quit;
};

#endif
