// Many inputs in one run of sign or verify: one key opening and one login
// for all. The inputs are the command's file arguments and the lines of
// --list FILE (or standard input for "-"); each has its signature file
// beside it as <input>.sig, or as <name>.sig in the folder of --out-dir
// (sign) or --sig-dir (verify). Every input is tried and reported on a
// line of its own, unless --stop-on-error: one that fails is reported and
// the rest go on. With --json the results are the array "results", one
// per input.
#ifndef TWHOST_BATCHRUN_H
#define TWHOST_BATCHRUN_H

#include <QDir>
#include <QString>
#include <QStringList>

#include <functional>

class CliContext;

class BatchRun
{
public:
    // Signing writes the signature files, verifying reads them.
    enum class Mode { Sign, Verify };
    BatchRun(CliContext &ctx, Mode mode);

    // Whether the command line asks for a batch rather than one input.
    bool wanted() const;

    // Checks the options that go with a batch and reads the inputs, before
    // the key is opened; false after a usage report.
    bool prepare();

    // Calls work for each input and its signature file: work returns Ok or
    // reports its failure through the context as for a single input.
    // Returns Ok when every input went well, else Failed after a report.
    int run(const std::function<int(const QString &input, const QString &signature)> &work);

private:
    QString signaturePath(const QString &input) const;

    CliContext &m_ctx;
    Mode m_mode;
    QString m_dir;
    QDir m_folder;
    QStringList m_inputs;
};

#endif
