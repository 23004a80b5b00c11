// What the signing benchmarks share: a software token in a store of its
// own, with an SM2 container; a host that opens it through the library
// and signs by name (eccSimpleSign); interleaved repetitions; and the
// verdict on the median CPU times of the library against the same token
// calls made directly. Each program adds its direct side:
//
//   SignBench bench(argc, argv);               // before any benchmark runs
//   if (!bench.ready() || !bench.openThroughLibrary(binPath) || !openDirectly()) return 2;
//   return bench.run("BM_Direct...", 1.10);
//
// with BENCHMARK(SignBench::library) and the direct benchmark registered
// with SignBench::repeat.
#ifndef TWBENCH_SIGNBENCH_H
#define TWBENCH_SIGNBENCH_H

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTemporaryDir>

#include "componenthost.h"
#include "twcore.h"

class SignBench
{
public:
    static constexpr char kDevice[] = "bench";
    static constexpr char kContainer[] = "sign";
    static constexpr char kUserPin[] = "12345678";
    static constexpr char kUserId[] = "1234567812345678";
    static const QByteArray kMessage;

    // Parses the benchmark options (interleaving the repetitions unless
    // told otherwise), makes the store and points SOFTTOKEN_STORE at it.
    SignBench(int argc, char **argv);
    bool ready() const { return m_ready; }
    QString workPath() const { return m_work.path(); }

    // The host's core, its log sink discarding, with this binPath; the key
    // opened, logged in and its container opened, all by name.
    bool openThroughLibrary(const QString &binPath);

    // The library side: eccSimpleSign by name.
    static void library(benchmark::State &state);
    // Repetitions of either side.
    static void repeat(benchmark::internal::Benchmark *b);
    // Runs the benchmarks, prints the medians and their ratio; 0 when the
    // CPU ratio is within `limit`, 1 above, 2 when a side did not run.
    int run(const char *directName, double limit);

    static bool fail(const char *what);

private:
    QTemporaryDir m_work;
    TWCore m_core;
    ComponentHost m_host;
    QObject *m_key = nullptr;
    Qt::HANDLE m_container = nullptr;
    bool m_ready = false;
};

#endif
