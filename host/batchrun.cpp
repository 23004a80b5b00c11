#include "batchrun.h"

#include "clicontext.h"
#include "skferrortext.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>

BatchRun::BatchRun(CliContext &ctx, Mode mode) : m_ctx(ctx), m_mode(mode) {}

bool BatchRun::wanted(const CliContext &ctx)
{
    return !ctx.args().isEmpty() || ctx.has("list");
}

int BatchRun::prepare()
{
    const char *dirOption = m_mode == Mode::Sign ? "out-dir" : "sig-dir";
    if (m_ctx.has("in") || m_ctx.has("out") || m_ctx.has("sig"))
        return m_ctx.usage(QStringLiteral("--in, --out and --sig are for one input; a batch takes files or --list"));
    const QString list = m_ctx.value("list");
    if (list == QLatin1String("-") && m_ctx.has("pin-fd") && m_ctx.value("pin-fd").trimmed() == QLatin1String("0"))
        return m_ctx.usage(QStringLiteral("--list - and --pin-fd 0 would both read standard input"));
    m_dir = m_ctx.value(dirOption);
    if (m_ctx.has(dirOption) && !QFileInfo(m_dir).isDir())
        return m_ctx.usage(QStringLiteral("--%1 %2 is no folder").arg(QLatin1String(dirOption), m_dir));
    m_inputs = m_ctx.args();
    if (list.isEmpty())
        return CliContext::Ok;
    QByteArray text;
    if (!m_ctx.readFile(list == QLatin1String("-") ? QStringLiteral("/dev/stdin") : list, &text))
        return CliContext::Usage;
    for (QByteArray line : text.split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        if (!line.isEmpty())
            m_inputs.append(QFile::decodeName(line));
    }
    return CliContext::Ok;
}

QString BatchRun::signaturePath(const QString &input) const
{
    const QString name = (m_dir.isEmpty() ? input : QFileInfo(input).fileName()) + QStringLiteral(".sig");
    return m_dir.isEmpty() ? name : QDir(m_dir).filePath(name);
}

int BatchRun::run(const std::function<int(const QString &, const QString &)> &work)
{
    const bool stopOnError = m_ctx.has("stop-on-error");
    const bool json = m_ctx.json();
    const QString done = QLatin1String(m_mode == Mode::Sign ? "signed" : "verified");
    QSet<QString> written;
    QJsonArray results;
    int good = 0, failed = 0;
    for (const QString &input : m_inputs) {
        const QString signature = signaturePath(input);
        int rc = CliContext::Failed;
        CliContext::Report report;
        const bool tried = !failed || !stopOnError;
        if (tried) {
            m_ctx.collectReports(true);
            m_ctx.clearError();
            // Two signatures into one file would lose the first.
            if (m_mode == Mode::Sign && written.contains(signature))
                rc = m_ctx.usage(QStringLiteral("another input of this batch writes %1").arg(signature));
            else
                rc = work(input, signature);
            written.insert(signature);
            report = m_ctx.takeReport();
            m_ctx.collectReports(false);
            if (report.message.isEmpty())
                report.message = QStringLiteral("failed");
            ++(rc == CliContext::Ok ? good : failed);
        } else {
            report.message = QStringLiteral("not tried after an earlier failure");
        }
        if (json) {
            QJsonObject result{{QStringLiteral("input"), input},
                               {QStringLiteral("signature"), signature},
                               {QStringLiteral("ok"), rc == CliContext::Ok}};
            if (rc != CliContext::Ok)
                result.insert(QStringLiteral("error"), report.message);
            if (rc != CliContext::Ok && report.code)
                result.insert(QStringLiteral("code"), QString::asprintf("0x%08X", report.code));
            if (!tried)
                result.insert(QStringLiteral("skipped"), true);
            results.append(result);
        } else if (rc == CliContext::Ok) {
            m_ctx.print(QStringLiteral("%1 %2 (%3)").arg(done, -8).arg(input, signature));
        } else if (!tried) {
            m_ctx.print(QStringLiteral("%1 %2").arg(QStringLiteral("skipped"), -8).arg(input));
        } else {
            const QString code = report.code ? QStringLiteral(" (%1)").arg(SkfErrorText::line(report.code)) : QString();
            m_ctx.print(QStringLiteral("%1 %2: %3%4").arg(QStringLiteral("FAILED"), -8).arg(input, report.message, code));
        }
    }
    const int total = m_inputs.size();
    if (json)
        m_ctx.printJson(results);
    else
        m_ctx.print(QStringLiteral("%1 of %2 %3%4%5")
                        .arg(good)
                        .arg(total)
                        .arg(done, failed ? QStringLiteral(", %1 failed").arg(failed) : QString(),
                             total - good - failed ? QStringLiteral(", %1 not tried").arg(total - good - failed) : QString()));
    return good == total ? CliContext::Ok : CliContext::Failed;
}
