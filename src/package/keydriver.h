#ifndef TWKEY_KEYDRIVER_H
#define TWKEY_KEYDRIVER_H

#include <QObject>

class KeyObject;

// Abstract driver: enumerates tokens behind one library and hands out
// key objects.
class KeyDriver : public QObject
{
    Q_OBJECT
public:
    explicit KeyDriver(QObject *parent = nullptr);
    ~KeyDriver() override;

    virtual bool load() = 0;
    virtual void unload() = 0;
    virtual KeyObject *openKey(int index) = 0;
    virtual KeyObject *openKeyWithoutEnumDev(int index) = 0;
    virtual int count() = 0;

    qint64 lastError();
    void setLastError(long long code);
};

#endif
