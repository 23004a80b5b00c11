// Where the CLI takes PINs from: the --pin option first (the PIN itself,
// or pass:TEXT, env:VAR, file:PATH), then lines of the --pin-fd descriptor,
// then a prompt on the terminal without echo. Echo comes back when the
// prompt ends, also when a signal ends the program at it.
#ifndef TWHOST_PINREADER_H
#define TWHOST_PINREADER_H

#include <QString>
#include <QStringList>

class PinReader
{
public:
    // fd < 0: no descriptor.
    PinReader(const QString &pinOption, int fd);

    bool next(const QString &prompt, QString *pin, QString *error);
    // A new PIN: as next(), but asked twice when it comes from the terminal.
    bool nextNew(const QString &prompt, QString *pin, QString *error);
    // Takes the descriptor's next PIN now, ahead of data that may follow it
    // on the same descriptor. Does nothing without a descriptor or when
    // the option gives the first PIN.
    bool readAhead(QString *error);

private:
    bool fromOption(QString *pin, QString *error) const;
    bool fromDescriptor(QString *pin, QString *error);
    static bool prompt(const QString &text, QString *pin, QString *error);

    QString m_option;
    bool m_optionUsed = false;
    int m_fd;
    QStringList m_ahead;
};

#endif
