// Where the CLI takes PINs from: the --pin option first, then lines of the
// --pin-fd descriptor, then a prompt on the terminal without echo.
#ifndef TWHOST_PINREADER_H
#define TWHOST_PINREADER_H

#include <QString>

class PinReader
{
public:
    // fd < 0: no descriptor.
    PinReader(const QString &pinOption, int fd);

    bool next(const QString &prompt, QString *pin, QString *error);
    // A new PIN: as next(), but asked twice when it comes from the terminal.
    bool nextNew(const QString &prompt, QString *pin, QString *error);

private:
    bool fromDescriptor(QString *pin, QString *error);
    static bool prompt(const QString &text, QString *pin, QString *error);

    QString m_option;
    bool m_optionUsed = false;
    int m_fd;
};

#endif
