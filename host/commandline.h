// A program's commands and options kept as data, and what is made of it:
// one QCommandLineParser per command (its own options and the program's
// global ones, nothing else), the help at both levels, the man page and the
// bash completion. twkey and softtoken are both described this way.
#ifndef TWHOST_COMMANDLINE_H
#define TWHOST_COMMANDLINE_H

#include "clioutput.h"

#include <QCommandLineParser>
#include <QStringList>

#include <vector>

class CommandLine;

struct CliOption
{
    const char *name;
    // Null for a flag. "a|b|c" lists the only values taken; FILE, DIR and
    // PATH values are completed as file names.
    const char *valueName;
    const char *description;
};

struct CliCommand
{
    const char *name;
    // The positional arguments as the usage line shows them; empty when the
    // command takes none. Lower-case words in it are completed.
    const char *arguments;
    // Names of the options the command takes, blank-separated. "name!" must
    // be given, "name*" may be repeated, "@group" stands for a group's list.
    const char *options;
    const char *summary;
    const char *description;
    int (*run)(CommandLine &line);
};

struct CliProgram
{
    const char *name;
    const char *version;
    const char *summary;
    const char *description;
    // Options every command takes, in the form of CliCommand::options.
    const char *globalOptions;
    std::vector<CliOption> options;
    std::vector<std::pair<const char *, const char *>> groups;
    std::vector<CliCommand> commands;
    // Further sections of the help and the man page: title, text.
    std::vector<std::pair<const char *, const char *>> sections;
    // The option that asks for JSON output, or null.
    const char *jsonOption;
};

class CommandLine
{
public:
    explicit CommandLine(const CliProgram &program);

    // Parses the arguments (the program's name first). Returns -1 when
    // command() is to run; otherwise the exit code of what was done here:
    // help, version, the generated pages, or a usage error.
    int parse(const QStringList &arguments);
    // parse(), then the command's run(); a usage error in JSON as well.
    int exec(const QStringList &arguments);

    const CliProgram &program() const { return m_program; }
    const CliCommand *command() const { return m_command; }
    bool isSet(const char *option) const;
    QString value(const char *option, const QString &fallback = QString()) const;
    QStringList values(const char *option) const;
    // The positional arguments after the command's name.
    const QStringList &args() const { return m_args; }
    CliOutput &output() { return m_output; }

    // Reports a usage error with a pointer to the command's help; returns 2.
    int usage(const QString &message);

    QString helpText(const CliCommand *command) const;
    QString manPage() const;
    QString completion() const;

    // Decimal, or hexadecimal after 0x.
    static bool parseNumber(const QString &text, quint64 *value);

private:
    struct Taken
    {
        const CliOption *option;
        bool required;
        bool repeatable;
    };
    // Option names of a list with its groups spelled out, marks kept.
    QStringList expand(const char *list) const;
    // The command's options, then the global ones; the global ones alone
    // for a null command.
    std::vector<Taken> taken(const CliCommand *command) const;
    const CliOption *option(const QString &name) const;
    const CliCommand *findCommand(const QString &name) const;
    // The command's name, its options (global ones aside), its arguments.
    QStringList usageParts(const CliCommand *command) const;
    QString optionLabel(const CliOption &option) const;
    int check(const std::vector<Taken> &options);

    const CliProgram &m_program;
    QCommandLineParser m_parser;
    const CliCommand *m_command = nullptr;
    QStringList m_args;
    CliOutput m_output;
};

#endif
