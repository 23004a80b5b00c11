#include "clioutput.h"

#include <QJsonDocument>

#include <unistd.h>

namespace {

void put(FILE *stream, const QByteArray &bytes, bool flush = true)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    if (flush)
        std::fflush(stream);
}

} // namespace

CliOutput::CliOutput(const QString &program) : m_program(program) {}

void CliOutput::setStdout(FILE *stream)
{
    if (stream != m_stdout)
        std::fflush(m_stdout);
    m_stdout = stream;
    m_buffered = !stdoutIsTerminal();
}

bool CliOutput::stdoutIsTerminal() const
{
    return ::isatty(fileno(m_stdout)) == 1;
}

void CliOutput::line(const QString &text)
{
    if (!m_json)
        put(m_stdout, text.toUtf8() + '\n', !m_buffered);
}

void CliOutput::bytes(const QByteArray &data)
{
    put(m_stdout, data, !m_buffered);
}

void CliOutput::set(const QString &key, const QJsonValue &value)
{
    m_object.insert(key, value);
}

void CliOutput::record(const QJsonObject &object, const QString &text)
{
    m_streamed = true;
    put(m_stdout, m_json ? QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n' : text.toUtf8() + '\n');
}

void CliOutput::append(const char *key, const QString &text)
{
    QJsonArray list = m_object.value(QLatin1String(key)).toArray();
    list.append(text);
    m_object.insert(QLatin1String(key), list);
}

void CliOutput::status(const QString &text)
{
    flushResults();
    put(stderr, text.toUtf8() + '\n');
}

void CliOutput::warn(const QString &text)
{
    if (m_json) {
        append("warnings", text);
        return;
    }
    flushResults();
    put(stderr, QStringLiteral("%1: %2\n").arg(m_program, text).toUtf8());
}

int CliOutput::error(int exitCode, const QString &message, const QStringList &details, const QJsonObject &error)
{
    if (m_holding) {
        if (m_held.message.isEmpty())
            m_held = Failure{message, details, error};
        return exitCode;
    }
    // The text goes to standard error in either form: a person watching a
    // script sees it, and the JSON on standard output stays whole.
    QString text = QStringLiteral("%1: %2\n").arg(m_program, message);
    for (const QString &d : details)
        text += d + QLatin1Char('\n');
    flushResults();
    put(stderr, text.toUtf8());
    if (!m_object.contains(QStringLiteral("message")))
        m_object.insert(QStringLiteral("message"), message);
    if (!error.isEmpty())
        m_object.insert(QStringLiteral("error"), error);
    return exitCode;
}

int CliOutput::finish(int exitCode)
{
    if (!m_json || m_finished)
        return exitCode;
    m_finished = true;
    if (m_streamed && exitCode == 0)
        return exitCode;
    m_object.insert(QStringLiteral("ok"), exitCode == 0);
    if (exitCode != 0)
        m_object.insert(QStringLiteral("exitCode"), exitCode);
    const QJsonDocument doc(m_object);
    put(m_stdout, m_streamed ? doc.toJson(QJsonDocument::Compact) + '\n' : doc.toJson(QJsonDocument::Indented));
    return exitCode;
}

void CliOutput::holdFailure()
{
    m_holding = true;
    m_held = Failure();
}

CliOutput::Failure CliOutput::takeFailure()
{
    m_holding = false;
    const Failure held = m_held;
    m_held = Failure();
    return held;
}
