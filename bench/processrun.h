// One run of a program as a child process, as a user starts it: its exit
// code, its standard output, and its wall and CPU time (user and system
// time of the child itself, which other load on the machine blurs least).
#ifndef TWBENCH_PROCESSRUN_H
#define TWBENCH_PROCESSRUN_H

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

class ProcessRun
{
public:
    // Runs program with args, standard input empty; false if it could not start.
    bool run(const QString &program, const QStringList &args);

    int exitCode = -1;
    QByteArray output;
    double wallMs = 0;
    double cpuMs = 0;

    static double median(std::vector<double> values);
};

#endif
