// Keeps the machine-wide device-state file as it was: a test that lets the
// library connect to a token changes "/tmp/tw_device", so it holds one of
// these for its whole run (e.g. a member of the test class):
//
//   TwDeviceGuard guard;     // saves the content, or that there was none
//   ...                      // restored (or removed again) on destruction
//
// Tests that connect should also take the ctest RESOURCE_LOCK "tw_device",
// so that two of them do not write the file at once.
#ifndef TWTEST_TWDEVICEGUARD_H
#define TWTEST_TWDEVICEGUARD_H

#include <QByteArray>
#include <QString>

class TwDeviceGuard
{
public:
    static const char *const kPath;

    TwDeviceGuard();
    ~TwDeviceGuard();

    TwDeviceGuard(const TwDeviceGuard &) = delete;
    TwDeviceGuard &operator=(const TwDeviceGuard &) = delete;

    // The file's content now; a null array when there is no file.
    static QByteArray current();
    // Writes the file (content as it stands, no line end) or removes it for a null array.
    static bool set(const QByteArray &content);

private:
    QByteArray m_saved;
    bool m_existed;
};

#endif
