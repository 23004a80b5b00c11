#include "batchrun.h"

#include "clicontext.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QStringBuilder>

BatchRun::BatchRun(CliContext &ctx, Mode mode) : m_ctx(ctx), m_mode(mode) {}

bool BatchRun::wanted() const
{
    return !m_ctx.args().isEmpty() || m_ctx.has("list");
}

bool BatchRun::prepare()
{
    const bool signing = m_mode == Mode::Sign;
    const char *dirOption = signing ? "out-dir" : "sig-dir";
    if (m_ctx.has("in") || m_ctx.has(signing ? "out" : "sig")) {
        m_ctx.usage(QStringLiteral("--in and --%1 are for one input; a batch takes files or --list")
                        .arg(QLatin1String(signing ? "out" : "sig")));
        return false;
    }
    m_dir = m_ctx.value(dirOption);
    m_folder.setPath(m_dir);
    if (m_ctx.has(dirOption) && !QFileInfo(m_dir).isDir()) {
        m_ctx.usage(QStringLiteral("--%1 %2 is no folder").arg(QLatin1String(dirOption), m_dir));
        return false;
    }
    m_inputs = m_ctx.args();
    if (!m_ctx.has("list"))
        return true;
    // The list is data: a PIN on --pin-fd comes first, as for one input.
    QByteArray text;
    if (!m_ctx.readData(m_ctx.value("list"), &text))
        return false;
    for (QByteArray line : text.split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        if (!line.isEmpty())
            m_inputs.append(QFile::decodeName(line));
    }
    return true;
}

QString BatchRun::signaturePath(const QString &input) const
{
    if (m_dir.isEmpty())
        return input + QStringLiteral(".sig");
    // The file name as QFileInfo gives it, what follows the last '/', taken
    // without building one per input.
    return m_folder.filePath(QStringView(input).mid(input.lastIndexOf(QLatin1Char('/')) + 1) % QLatin1String(".sig"));
}

int BatchRun::run(const std::function<int(const QString &, const QString &)> &work)
{
    const bool signing = m_mode == Mode::Sign;
    const bool stopOnError = m_ctx.has("stop-on-error");
    // A long batch would spend more on JSON nobody reads than on the rest
    // of its bookkeeping: results are built only for --json.
    const bool json = m_ctx.json();
    const QString done = QLatin1String(signing ? "signed" : "verified");
    const QString doneColumn = done.leftJustified(8) + QLatin1Char(' ');
    const QString signatureField = QLatin1String(signing ? "out" : "sig");
    QSet<QString> written;
    QJsonArray results;
    int good = 0, failed = 0;
    for (const QString &input : qAsConst(m_inputs)) {
        const QString signature = signaturePath(input);
        QJsonObject result;
        if (json)
            result = {{QStringLiteral("in"), input}, {signatureField, signature}, {QStringLiteral("ok"), false}};
        if (failed && stopOnError) {
            result.insert(QStringLiteral("skipped"), true);
            if (json)
                results.append(result);
            m_ctx.print(QStringLiteral("%1 %2").arg(QStringLiteral("skipped"), -8).arg(input));
            continue;
        }
        m_ctx.out().holdFailure();
        m_ctx.clearError();
        // Two signatures into one file would lose the first.
        const int known = written.size();
        if (signing)
            written.insert(signature);
        const int rc = signing && written.size() == known
                           ? m_ctx.usage(QStringLiteral("another input of this batch writes %1").arg(signature))
                           : work(input, signature);
        const CliOutput::Failure failure = m_ctx.out().takeFailure();
        if (rc == CliContext::Ok) {
            ++good;
            if (json)
                result.insert(QStringLiteral("ok"), true);
            m_ctx.print(doneColumn % input % QLatin1String(" (") % signature % QLatin1Char(')'));
        } else {
            ++failed;
            const QString message = failure.message.isEmpty() ? QStringLiteral("failed") : failure.message;
            result.insert(QStringLiteral("message"), message);
            if (!failure.error.isEmpty())
                result.insert(QStringLiteral("error"), failure.error);
            // The code's line, not the pointer to the help of a usage error.
            const QString detail = failure.error.isEmpty() || failure.details.isEmpty()
                                       ? QString()
                                       : QStringLiteral(" (%1)").arg(failure.details.first());
            m_ctx.print(QStringLiteral("%1 %2: %3%4").arg(QStringLiteral("FAILED"), -8).arg(input, message, detail));
        }
        if (json)
            results.append(result);
    }
    m_ctx.out().set(QStringLiteral("results"), results);
    const int total = m_inputs.size(), untried = total - good - failed;
    const QString summary = QStringLiteral("%1 of %2 %3%4%5")
                                .arg(good)
                                .arg(total)
                                .arg(done, failed ? QStringLiteral(", %1 failed").arg(failed) : QString(),
                                     untried ? QStringLiteral(", %1 not tried").arg(untried) : QString());
    if (good != total)
        return m_ctx.refuse(summary);
    m_ctx.status(summary);
    return CliContext::Ok;
}
