// Where a command's output goes. Results go to standard output, status
// and error lines to standard error. With JSON asked for, a run prints one
// JSON object on standard output instead of its results: the command's
// fields, "ok", warnings, and on a failure "message" with the error's
// details.
#ifndef TWHOST_CLIOUTPUT_H
#define TWHOST_CLIOUTPUT_H

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <cstdio>

class CliOutput
{
public:
    explicit CliOutput(const QString &program);

    void setJson(bool on) { m_json = on; }
    bool json() const { return m_json; }
    // The stream results go to; stdout unless moved. Moved onto a stream
    // that is no terminal, results are written in blocks rather than line
    // by line: a batch reports every input. Anything on standard error, a
    // stream record and the end flush them first.
    void setStdout(FILE *stream);
    FILE *stdoutStream() const { return m_stdout; }
    bool stdoutIsTerminal() const;
    // Before a prompt or other text that should follow the results so far.
    void flushResults() { std::fflush(m_stdout); }

    // A line of results (text output only).
    void line(const QString &text);
    void bytes(const QByteArray &data);
    // A field of the JSON object.
    void set(const QString &key, const QJsonValue &value);
    // One record of a stream: a JSON line, or the text line. A stream that
    // ends well prints no closing object.
    void record(const QJsonObject &object, const QString &text);
    // A line that tells what was done, on standard error in either form.
    void status(const QString &text);
    // "program: text" on standard error; kept under "warnings" in JSON.
    void warn(const QString &text);
    // A failure: "program: message" and the detail lines on standard error,
    // or "message" and "error" in JSON. Returns exitCode.
    int error(int exitCode, const QString &message, const QStringList &details = QStringList(),
              const QJsonObject &error = QJsonObject());
    // Prints the JSON object once; returns exitCode.
    int finish(int exitCode);

    // From holdFailure() to takeFailure(), error() keeps its first failure
    // here instead of reporting it: one item of a batch, reported with the
    // others.
    struct Failure
    {
        QString message;
        QStringList details;
        QJsonObject error;
    };
    void holdFailure();
    Failure takeFailure();

private:
    void append(const char *key, const QString &text);

    QString m_program;
    bool m_json = false;
    bool m_finished = false;
    bool m_streamed = false;
    bool m_holding = false;
    Failure m_held;
    FILE *m_stdout = stdout;
    bool m_buffered = false;
    QJsonObject m_object;
};

#endif
