// Counting distinct keys across drivers, mapping a global index back to a
// driver, and the handle road on one package. Each driver here has a token
// library of its own (a copy of the test library), so tokens of different
// drivers can share a serial number.
#include <QCoreApplication>
#include <QPointer>
#include <QtTest>

#include <memory>

#include "../frame/logcheck.h"
#include "frame/keydriverinfoagent.h"
#include "frame/rtc.h"
#include "kdpfixture.h"
#include "manager/twkey.h"
#include "mockcontrol.h"
#include "package/keydriverinfo.h"
#include "package/keydriverpackage.h"
#include "session/keyobject.h"
#include "twcall.h"
#include "twcore.h"
#include "twdeviceguard.h"

class TstKeyMapping : public QObject
{
    Q_OBJECT

    TWCore core;
    TwDeviceGuard deviceFile;
    std::unique_ptr<KdpFixture> kdp;
    QList<std::shared_ptr<MockControl>> libraries;

    // A package with a token library of its own, steered by the result.
    MockControl &driverPackage(const QString &name)
    {
        const QString dir = kdp->addPackage(name, KdpConfig(), QStringLiteral(MOCKSKF_PATH), KdpFixture::Link::Copy);
        auto mock = std::make_shared<MockControl>(dir + QStringLiteral("/libmockskf.so"));
        if (!mock->isLoaded())
            qFatal("%s", qPrintable(mock->errorString()));
        mock->reset();
        libraries << mock;
        return *mock;
    }

    // A token that opens: one application with one container.
    static void addToken(MockControl &mock, const char *dev, const char *serial)
    {
        mock.add_device(dev, serial);
        mock.add_app(dev, "APP");
        mock.add_container(dev, "APP", "C1", CONTAINER_TYPE_ECC);
    }

    std::unique_ptr<TWKey> scan()
    {
        core.setBinPath(kdp->root());
        auto manager = std::make_unique<TWKey>();
        core.clear();
        return manager;
    }

    static int count(QObject *manager)
    {
        int n = -1;
        if (!twCall(manager, "count", n))
            qFatal("count is not callable");
        return n;
    }
    static QObject *open(QObject *manager, int index)
    {
        TWPtr key{"KeyObject*"};
        twCall(manager, "open", key, index);
        return key.object();
    }
    static QObject *openEx(QObject *manager, int index, bool enumDev)
    {
        TWPtr key{"KeyObject*"};
        twCall(manager, "openEx", key, index, enumDev);
        return key.object();
    }
    static QString serialOf(QObject *key)
    {
        QString serial;
        twCall(key, "serialNumber", serial);
        return serial;
    }

    int logged(const QString &function, const QString &message) const
    {
        return logcheck::count(core, TWCore::Level::Debug, function, message);
    }

private slots:
    void init()
    {
        kdp = std::make_unique<KdpFixture>();
        QVERIFY(kdp->isValid());
        core.clear();
        ComponentInit(&core);
    }

    void cleanup()
    {
        ComponentDestroy();
        while (!KeyObject::s_vecKeyObj.isEmpty())
            delete KeyObject::s_vecKeyObj.last();
        libraries.clear();
        kdp.reset();
    }

    void tokenSeenByTwoDriversCountsOnce()
    {
        addToken(driverPackage(QStringLiteral("a")), "a-dev", "SAME");
        MockControl &b = driverPackage(QStringLiteral("b"));
        addToken(b, "b-dev", "SAME");
        auto manager = scan();
        QCOMPARE(count(manager.get()), 1);
        QCOMPARE(logged(QStringLiteral("count"), QStringLiteral(" serialNumber: SAME")), 2);
        QCOMPARE(logged(QStringLiteral("count"), QStringLiteral(" end. keySN exist")), 1);
        QCOMPARE(logged(QStringLiteral("count"), QStringLiteral(" total Count:1")), 1);

        b.clearCalls();
        QObject *key = open(manager.get(), 0);
        QVERIFY(key);
        QCOMPARE(qobject_cast<KeyObject *>(key)->devName(), QStringLiteral("a-dev"));
        QCOMPARE(b.count("SKF_EnumDev"), 0);
        // The second driver dropped out of the mapping.
        QCOMPARE(open(manager.get(), 1), nullptr);
        QCOMPARE(b.count("SKF_EnumDev"), 0);
    }

    void threeTokensAcrossTwoDrivers()
    {
        MockControl &a = driverPackage(QStringLiteral("a"));
        MockControl &b = driverPackage(QStringLiteral("b"));
        addToken(a, "a1", "SN-A1");
        addToken(b, "b1", "SN-B1");
        addToken(b, "b2", "SN-B2");
        auto manager = scan();
        QCOMPARE(count(manager.get()), 3);
        // One enumeration per driver per pass.
        QCOMPARE(a.count("SKF_EnumDev"), 2);
        QCOMPARE(b.count("SKF_EnumDev"), 2);

        a.clearCalls();
        b.clearCalls();
        QObject *key = open(manager.get(), 2);
        QVERIFY(key);
        QCOMPARE(serialOf(key), QStringLiteral("SN-B2"));
        QCOMPARE(a.count("SKF_EnumDev"), 0);
        QCOMPARE(b.count("SKF_EnumDev"), 2); // open enumerates afresh
        // The key knows its driver now.
        int type = -1;
        QVERIFY(twCall(key, "getDriverType", type));
        QCOMPARE(type, 1);
        QCOMPARE(serialOf(open(manager.get(), 0)), QStringLiteral("SN-A1"));
        QCOMPARE(open(manager.get(), 3), nullptr);
        QCOMPARE(logged(QStringLiteral("open"), QStringLiteral(" end.")), 1);
    }

    void repeatedSerialDropsTheDriver()
    {
        addToken(driverPackage(QStringLiteral("a")), "a1", "SN1");
        MockControl &b = driverPackage(QStringLiteral("b"));
        addToken(b, "b1", "SN2");
        addToken(b, "b2", "SN1");
        auto manager = scan();
        // The new token of b stays counted but can't be opened any more.
        QCOMPARE(count(manager.get()), 2);
        QCOMPARE(open(manager.get(), 1), nullptr);
        QVERIFY(open(manager.get(), 0));
    }

    void negativeIndexReachesTheDriver()
    {
        addToken(driverPackage(QStringLiteral("a")), "a1", "SN1");
        auto manager = scan();
        QCOMPARE(count(manager.get()), 1);
        core.clear();
        QCOMPARE(open(manager.get(), -1), nullptr);
        QCOMPARE(logged(QStringLiteral("open"), QStringLiteral(" openKey")), 1);
        QCOMPARE(logged(QStringLiteral("open"), QStringLiteral(" openKey failed.")), 1);
        QCOMPARE(logcheck::count(core, TWCore::Level::Error, QStringLiteral("openKey"), QStringLiteral(" devList count:1")), 1);
    }

    void openExWithoutEnumeration()
    {
        MockControl &a = driverPackage(QStringLiteral("a"));
        addToken(a, "a1", "SN1");
        addToken(a, "a2", "SN2");
        auto manager = scan();
        QCOMPARE(count(manager.get()), 2);
        a.clearCalls();
        QObject *key = openEx(manager.get(), 1, false);
        QVERIFY(key);
        QCOMPARE(serialOf(key), QStringLiteral("SN2"));
        QCOMPARE(a.count("SKF_EnumDev"), 0);
        QCOMPARE(logged(QStringLiteral("openEx"), QStringLiteral(" openKey")), 1);
        QCOMPARE(openEx(manager.get(), 1, true), key);
        QCOMPARE(a.count("SKF_EnumDev"), 2);
    }

    void deviceThatWontOpenShortensTheRange()
    {
        MockControl &a = driverPackage(QStringLiteral("a"));
        addToken(a, "a1", "SN1");
        a.add_device("a2", "SN2"); // no application: never opens
        addToken(a, "a3", "SN3");
        auto manager = scan();
        QCOMPARE(count(manager.get()), 2);
        // Local numbering is kept: index 1 is the blank token again, and
        // the third token is out of reach.
        QCOMPARE(open(manager.get(), 1), nullptr);
        QCOMPARE(open(manager.get(), 2), nullptr);
        QCOMPARE(serialOf(open(manager.get(), 0)), QStringLiteral("SN1"));
    }

    void handleRoad()
    {
        // A package outside the scanned folder.
        QTemporaryDir other;
        const QString dir = other.path() + QStringLiteral("/single");
        QVERIFY(KdpFixture::writePackage(dir, KdpConfig(), QStringLiteral(MOCKSKF_PATH), KdpFixture::Link::Copy));
        MockControl mock(dir + QStringLiteral("/libmockskf.so"));
        QVERIFY(mock.isLoaded());
        mock.reset();
        addToken(mock, "d1", "SN1");
        addToken(mock, "d2", "SN2");

        auto manager = scan();
        const int children = manager->children().size();
        TWPtr handle{"KeyDriverInfo*"};
        QVERIFY(twCall(manager.get(), "createKDI", handle, dir));
        QVERIFY(handle.value);
        QCOMPARE(manager->children().size(), children + 2);
        // The scan's road doesn't see it.
        QCOMPARE(count(manager.get()), 0);

        KeyDriverInfo *info = static_cast<KeyDriverInfo *>(handle.value);
        KeyDriverInfoAgent proxy(info);
        const TWPtr bare{"KeyDriverInfoAgent*", info};
        const TWPtr viaProxy{"KeyDriverInfoAgent*", &proxy};

        TWPtr key{"KeyObject*"};
        QVERIFY(twCall(manager.get(), "openByKDI", key, bare, 0));
        QCOMPARE(key.value, nullptr); // not counted yet

        for (const TWPtr &h : {bare, viaProxy}) {
            int n = -1;
            QVERIFY(twCall(manager.get(), "countByKDI", n, h));
            QCOMPARE(n, 2);
            QVERIFY(info->isActive());
            QCOMPARE(info->firstIndex(), 0);
            QCOMPARE(info->keyCount(), 2);
        }
        QCOMPARE(mock.count("SKF_EnumDev"), 2 * 2 * 3); // each step enumerates anew

        TWPtr first{"KeyObject*"}, second{"KeyObject*"}, beyond{"KeyObject*"};
        QVERIFY(twCall(manager.get(), "openByKDI", first, bare, 0));
        QVERIFY(twCall(manager.get(), "openByKDI", second, viaProxy, 1));
        QVERIFY(twCall(manager.get(), "openByKDI", beyond, viaProxy, 2));
        QVERIFY(first.value && second.value);
        QCOMPARE(beyond.value, nullptr);
        QCOMPARE(static_cast<KeyObject *>(first.value)->getKDI(), info);
        QCOMPARE(static_cast<KeyObject *>(second.value)->getKDI(), info);

        // Only the newest key of the handle goes; the pair goes later.
        QPointer<KeyDriverInfo> watchInfo(info);
        QPointer<QObject> watchPackage(info->getKDP());
        QVERIFY(twCallVoid(manager.get(), "destroyKDI", viaProxy));
        QCOMPARE(logged(QStringLiteral("destroyKDI"), QStringLiteral(" find destroyKDI")), 1);
        QVERIFY(KeyObject::s_vecKeyObj.contains(static_cast<KeyObject *>(first.value)));
        QVERIFY(!KeyObject::s_vecKeyObj.contains(static_cast<KeyObject *>(second.value)));
        QVERIFY(watchInfo && watchPackage);
        // The older key would outlive its driver, whose table it calls
        // through: it goes first.
        delete static_cast<KeyObject *>(first.value);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(!watchInfo && !watchPackage);
        QCOMPARE(manager->children().size(), children);
    }

    void handleRoadRefusals()
    {
        auto manager = scan();
        const int children = manager->children().size();
        TWPtr handle{"KeyDriverInfo*"};
        QVERIFY(twCall(manager.get(), "createKDI", handle, kdp->root() + QStringLiteral("/nothing")));
        QCOMPARE(handle.value, nullptr);
        QCOMPARE(logged(QStringLiteral("createKDI"), QStringLiteral("end. open kdp failed")), 1);
        QCOMPARE(manager->children().size(), children);

        // A proxy of nothing: nothing to count, nothing to destroy.
        KeyDriverInfoAgent empty(nullptr);
        const TWPtr none{"KeyDriverInfoAgent*", &empty};
        int n = -1;
        QVERIFY(twCall(manager.get(), "countByKDI", n, none));
        QCOMPARE(n, 0);
        QCOMPARE(logged(QStringLiteral("countByKDI"), QStringLiteral(" total Count:0")), 1);
        QVERIFY(twCallVoid(manager.get(), "destroyKDI", none));
        TWPtr key{"KeyObject*"};
        QVERIFY(twCall(manager.get(), "openByKDI", key, none, 0));
        QCOMPARE(key.value, nullptr);
    }
};

QTEST_GUILESS_MAIN(TstKeyMapping)
#include "tst_keymapping.moc"
