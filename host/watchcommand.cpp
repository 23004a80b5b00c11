#include "watchcommand.h"

#include "clicontext.h"
#include "devicewatcher.h"
#include "skferrortext.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QSocketNotifier>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {

constexpr uint kArrival = SKF_DEV_EVENT_INSERT;
constexpr uint kRemoval = SKF_DEV_EVENT_REMOVE;
constexpr int kStopTries = 20;
constexpr int kStopWaitMs = 100;

// Ctrl-C and SIGTERM reach the event loop through a pipe.
int s_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    const ssize_t written = ::write(s_signalPipe[1], &byte, 1);
    (void)written;
}

// The drivers of the manager's driver infos that have the slot by which a
// host tells of a device event.
QObject *eventDriver(QObject *manager)
{
    for (QObject *info : manager->children()) {
        for (QObject *driver : info->children()) {
            if (driver->metaObject()->indexOfSlot("on_keyEvent(QString,bool)") >= 0)
                return driver;
        }
    }
    return nullptr;
}

QString eventName(uint event)
{
    return event == kArrival ? QStringLiteral("inserted")
           : event == kRemoval ? QStringLiteral("removed")
                               : QStringLiteral("event %1").arg(event);
}

// Waits on every watcher's end; those whose wait did not end in time are
// asked again, since a cancel that comes before the wait starts is lost.
bool stopAll(const std::vector<std::unique_ptr<DeviceWatcher>> &watchers)
{
    bool stopped = true;
    for (const auto &watcher : watchers) {
        bool cancellable = watcher->stop();
        for (int i = 0; cancellable && i < kStopTries && !watcher->wait(kStopWaitMs); ++i)
            cancellable = watcher->stop();
        stopped = stopped && watcher->isFinished();
    }
    return stopped;
}

} // namespace

int WatchCommand::watch(CliContext &ctx)
{
    // Counting loads every package's driver and opens a session on each
    // token present, so that a removal has a session to close.
    int count = 0, rc = CliContext::Ok;
    if (!ctx.countKeys(&count, &rc))
        return rc;
    QObject *driver = eventDriver(ctx.manager());
    std::vector<std::unique_ptr<DeviceWatcher>> watchers;
    for (const TokenLibraries::Library &library : TokenLibraries::loaded(ctx.packageDir())) {
        if (library.waitForDevEvent)
            watchers.push_back(std::make_unique<DeviceWatcher>(library));
    }
    if (watchers.empty())
        return ctx.refuse(QStringLiteral("no token library of the packages in %1 offers SKF_WaitForDevEvent").arg(ctx.packageDir()));
    if (::pipe2(s_signalPipe, O_CLOEXEC) != 0)
        return ctx.refuse(QStringLiteral("cannot make a pipe for the signals"));
    QSocketNotifier notifier(s_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, qApp, [] { QCoreApplication::exit(CliContext::Ok); });
    struct sigaction action {}, formerInt {}, formerTerm {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &formerInt);
    ::sigaction(SIGTERM, &action, &formerTerm);

    for (const auto &watcher : watchers) {
        // Queued: the driver's slot and the output run on this thread.
        QObject::connect(watcher.get(), &DeviceWatcher::deviceEvent, qApp, [&ctx, driver](const QString &device, uint event) {
            QDateTime now = QDateTime::currentDateTime();
            now.setOffsetFromUtc(now.offsetFromUtc());
            const QString time = now.toString(Qt::ISODateWithMs);
            ctx.out().record(QJsonObject{{QStringLiteral("time"), time}, {QStringLiteral("event"), eventName(event)},
                                         {QStringLiteral("device"), device}},
                             QStringLiteral("%1 %2 %3").arg(time, eventName(event), device));
            if (driver && (event == kArrival || event == kRemoval))
                twCallVoid(driver, "on_keyEvent", device, event == kArrival);
        });
        QObject::connect(watcher.get(), &DeviceWatcher::waitFailed, qApp, [&ctx](uint code) {
            ctx.out().error(CliContext::Failed, QStringLiteral("the wait for device events failed"),
                            {SkfErrorText::line(code)}, SkfErrorText::json(code));
            QCoreApplication::exit(CliContext::Failed);
        });
        watcher->start();
    }
    ctx.status(QStringLiteral("watching %1 token librar%2 for tokens that come and go; Ctrl-C ends")
                   .arg(watchers.size())
                   .arg(watchers.size() == 1 ? "y" : "ies"));
    rc = QCoreApplication::exec();

    ::sigaction(SIGINT, &formerInt, nullptr);
    ::sigaction(SIGTERM, &formerTerm, nullptr);
    if (!stopAll(watchers)) {
        // A library that cannot end its wait keeps the thread; the process
        // ends without unwinding what that thread may still be using.
        ctx.finish(rc);
        std::fflush(nullptr);
        std::_Exit(rc);
    }
    ::close(s_signalPipe[0]);
    ::close(s_signalPipe[1]);
    return rc;
}
