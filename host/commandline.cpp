#include "commandline.h"

#include <QRegularExpression>

namespace {

// Options of the frame itself: help and version at both levels, and the
// generated pages that the build turns into files.
const char kHelp[] = "help";
const char kVersion[] = "version";
const char kHelpMan[] = "help-man";
const char kCompletion[] = "completion";

// How help and man page show the frame's own options.
const CliOption kFrameOptions[] = {
    {"help", nullptr, "tell about the program, or with a command about that command (also -h)"},
    {"version", nullptr, "print the program's version"},
};

constexpr int kHelpWidth = 79;
constexpr int kLabelWidth = 26;

QCommandLineOption parserOption(const CliOption &o)
{
    QCommandLineOption option(QString::fromLatin1(o.name), QString::fromUtf8(o.description));
    if (o.valueName)
        option.setValueName(QString::fromLatin1(o.valueName));
    return option;
}

// The values an option takes when its value name lists them ("a|b|c").
QStringList choices(const CliOption &o)
{
    static const QRegularExpression list(QStringLiteral("^[a-z0-9-]+(\\|[a-z0-9-]+)+$"));
    const QString name = QLatin1String(o.valueName);
    return list.match(name).hasMatch() ? name.split(QLatin1Char('|')) : QStringList();
}

void addFrameOptions(QCommandLineParser &parser)
{
    parser.addOption(QCommandLineOption(QStringList{QStringLiteral("h"), QLatin1String(kHelp)}));
    for (const char *name : {kVersion, kHelpMan, kCompletion})
        parser.addOption(QCommandLineOption(QLatin1String(name)));
}

// A parser's failure in words. Unknown options aside, it fails only on a
// missing value.
QString parseError(const QCommandLineParser &parser, const QString &command)
{
    const QStringList unknown = parser.unknownOptionNames();
    if (unknown.isEmpty())
        return QStringLiteral("an option needs a value: %1").arg(parser.errorText());
    const QString option = (unknown.first().size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + unknown.first();
    return command.isEmpty() ? QStringLiteral("unknown option %1").arg(option)
                             : QStringLiteral("unknown option %1: %2 takes no such option").arg(option, command);
}

// Text filled to the width, each line after the label's column.
QString wrapped(const QString &text, int indent)
{
    QString out;
    const QStringList paragraphs = text.split(QLatin1Char('\n'));
    for (const QString &paragraph : paragraphs) {
        QString line;
        for (const QString &word : paragraph.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            if (!line.isEmpty() && indent + line.size() + 1 + word.size() > kHelpWidth) {
                out += line + QLatin1Char('\n') + QString(indent, QLatin1Char(' '));
                line.clear();
            }
            line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
        out += line + QLatin1Char('\n');
        // Paragraphs of a text of its own stand apart; an option's follow on.
        if (&paragraph != &paragraphs.last())
            out += indent ? QString(indent, QLatin1Char(' ')) : QStringLiteral("\n");
    }
    return out;
}

QString row(const QString &label, const QString &text)
{
    const QString head = QStringLiteral("  ") + label;
    if (head.size() + 1 >= kLabelWidth)
        return head + QLatin1Char('\n') + QString(kLabelWidth, QLatin1Char(' ')) + wrapped(text, kLabelWidth);
    return head.leftJustified(kLabelWidth) + wrapped(text, kLabelWidth);
}

// Text as roff takes it: backslashes escaped, no line read as a request,
// each line a paragraph of its own.
QString roff(const QString &text, const char *paragraph = ".PP")
{
    QStringList lines;
    for (QString line : text.split(QLatin1Char('\n'))) {
        line.replace(QLatin1Char('\\'), QStringLiteral("\\e")).replace(QLatin1Char('-'), QStringLiteral("\\-"));
        if (line.startsWith(QLatin1Char('.')) || line.startsWith(QLatin1Char('\'')))
            line.prepend(QStringLiteral("\\&"));
        lines << line;
    }
    return lines.join(QLatin1Char('\n') + QLatin1String(paragraph) + QLatin1Char('\n')) + QLatin1Char('\n');
}

} // namespace

CommandLine::CommandLine(const CliProgram &program)
    : m_program(program), m_output(QString::fromLatin1(program.name))
{
}

int CommandLine::exec(const QStringList &arguments)
{
    const int rc = parse(arguments);
    if (rc > 0)
        return m_output.finish(rc);
    return rc == 0 ? rc : m_command->run(*this);
}

int CommandLine::parse(const QStringList &arguments)
{
    // A first pass with every option the program has finds the command's
    // name, whatever options stand before it.
    QCommandLineParser scan;
    scan.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const CliOption &o : m_program.options)
        scan.addOption(parserOption(o));
    addFrameOptions(scan);
    const bool parsed = scan.parse(arguments);
    if (m_program.jsonOption) {
        const QString json = QLatin1String(m_program.jsonOption);
        m_output.setJson(parsed ? scan.isSet(json) : arguments.contains(QStringLiteral("--") + json));
    }
    if (!parsed)
        return usage(parseError(scan, QString()));
    if (scan.isSet(QLatin1String(kHelpMan)) || scan.isSet(QLatin1String(kCompletion))) {
        m_output.bytes((scan.isSet(QLatin1String(kHelpMan)) ? manPage() : completion()).toUtf8());
        return 0;
    }
    const QStringList words = scan.positionalArguments();
    const QString name = words.value(0);
    if (name == QLatin1String(kHelp) || (name.isEmpty() && scan.isSet(QLatin1String(kHelp)))) {
        const QString topic = words.value(1);
        const CliCommand *command = findCommand(topic);
        if (!topic.isEmpty() && !command)
            return usage(QStringLiteral("unknown command %1").arg(topic));
        m_output.bytes(helpText(command).toUtf8());
        return 0;
    }
    if (scan.isSet(QLatin1String(kVersion))) {
        m_output.bytes(QStringLiteral("%1 %2\n").arg(QLatin1String(m_program.name), QLatin1String(m_program.version)).toUtf8());
        return 0;
    }
    if (name.isEmpty()) {
        std::fputs(qPrintable(helpText(nullptr)), stderr);
        return usage(QStringLiteral("no command given"));
    }
    m_command = findCommand(name);
    if (!m_command)
        return usage(QStringLiteral("unknown command %1").arg(name));
    if (scan.isSet(QLatin1String(kHelp))) {
        m_output.bytes(helpText(m_command).toUtf8());
        return 0;
    }

    // The command's own parser: its options and the global ones only.
    const std::vector<Taken> options = taken(m_command);
    m_parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const Taken &t : options)
        m_parser.addOption(parserOption(*t.option));
    if (!m_parser.parse(arguments))
        return usage(parseError(m_parser, name));
    m_args = m_parser.positionalArguments();
    m_args.removeFirst();
    return check(options);
}

int CommandLine::check(const std::vector<Taken> &options)
{
    const QString name = QLatin1String(m_command->name);
    const QStringList given = m_parser.optionNames();
    for (const Taken &t : options) {
        const QString option = QLatin1String(t.option->name);
        if (!t.repeatable && given.count(option) > 1)
            return usage(QStringLiteral("--%1 is given more than once").arg(option));
        if (t.required && !given.contains(option))
            return usage(QStringLiteral("%1 needs %2").arg(name, optionLabel(*t.option)));
        const QStringList values = choices(*t.option);
        if (given.contains(option) && !values.isEmpty() && !values.contains(m_parser.value(option)))
            return usage(QStringLiteral("--%1 takes %2, not %3").arg(option, values.join(QLatin1Char('|')), m_parser.value(option)));
    }
    if (!*m_command->arguments && !m_args.isEmpty())
        return usage(QStringLiteral("%1 takes no arguments").arg(name));
    return -1;
}

bool CommandLine::isSet(const char *option) const
{
    return m_command && m_parser.isSet(QLatin1String(option));
}

QString CommandLine::value(const char *option, const QString &fallback) const
{
    return isSet(option) ? m_parser.value(QLatin1String(option)) : fallback;
}

QStringList CommandLine::values(const char *option) const
{
    return isSet(option) ? m_parser.values(QLatin1String(option)) : QStringList();
}

int CommandLine::usage(const QString &message)
{
    const QString topic = m_command ? QStringLiteral(" %1").arg(QLatin1String(m_command->name)) : QString();
    return m_output.error(2, message,
                          {QStringLiteral("Try '%1 help%2'.").arg(QLatin1String(m_program.name), topic)});
}

QStringList CommandLine::expand(const char *list) const
{
    QStringList out;
    for (const QString &n : QString::fromLatin1(list).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (!n.startsWith(QLatin1Char('@'))) {
            out << n;
            continue;
        }
        for (const auto &group : m_program.groups) {
            if (n.mid(1) == QLatin1String(group.first))
                out << expand(group.second);
        }
    }
    return out;
}

std::vector<CommandLine::Taken> CommandLine::taken(const CliCommand *command) const
{
    std::vector<Taken> out;
    for (QString n : (command ? expand(command->options) : QStringList()) + expand(m_program.globalOptions)) {
        const bool required = n.endsWith(QLatin1Char('!')), repeatable = n.endsWith(QLatin1Char('*'));
        if (required || repeatable)
            n.chop(1);
        if (const CliOption *o = option(n))
            out.push_back({o, required, repeatable});
    }
    return out;
}

const CliOption *CommandLine::option(const QString &name) const
{
    for (const CliOption &o : m_program.options) {
        if (name == QLatin1String(o.name))
            return &o;
    }
    return nullptr;
}

const CliCommand *CommandLine::findCommand(const QString &name) const
{
    for (const CliCommand &c : m_program.commands) {
        if (name == QLatin1String(c.name))
            return &c;
    }
    return nullptr;
}

QString CommandLine::optionLabel(const CliOption &option) const
{
    QString label = QStringLiteral("--") + QLatin1String(option.name);
    if (option.valueName)
        label += QLatin1Char(' ') + QLatin1String(option.valueName);
    return label;
}

QStringList CommandLine::usageParts(const CliCommand *command) const
{
    QStringList parts{QLatin1String(command->name)};
    const QStringList global = expand(m_program.globalOptions);
    for (const Taken &t : taken(command)) {
        if (!global.contains(QLatin1String(t.option->name)))
            parts << (t.required ? optionLabel(*t.option) : QStringLiteral("[%1]").arg(optionLabel(*t.option)))
                         + (t.repeatable ? QStringLiteral("...") : QString());
    }
    if (*command->arguments)
        parts << QLatin1String(command->arguments);
    return parts;
}

QString CommandLine::helpText(const CliCommand *command) const
{
    const QString program = QLatin1String(m_program.name);
    QString out;
    if (command) {
        QString usage = QStringLiteral("Usage: %1 [options]").arg(program);
        int width = usage.size();
        for (const QString &part : usageParts(command)) {
            const bool fits = width + 1 + part.size() <= kHelpWidth;
            usage += (fits ? QStringLiteral(" ") : QStringLiteral("\n    ")) + part;
            width = (fits ? width + 1 : 4) + part.size();
        }
        out = usage + QStringLiteral("\n\n")
              + wrapped(QString::fromUtf8(command->description), 0) + QStringLiteral("\nOptions:\n");
        for (const Taken &t : taken(command))
            out += row(optionLabel(*t.option), QString::fromUtf8(t.option->description));
        return out;
    }
    out = QStringLiteral("Usage: %1 [options] COMMAND [arguments]\n\n").arg(program)
          + wrapped(QString::fromUtf8(m_program.description), 0) + QStringLiteral("\nCommands:\n");
    for (const CliCommand &c : m_program.commands)
        out += row(QLatin1String(c.name), QString::fromUtf8(c.summary));
    out += QStringLiteral("\nOptions of every command:\n");
    for (const Taken &t : taken(nullptr))
        out += row(optionLabel(*t.option), QString::fromUtf8(t.option->description));
    for (const CliOption &o : kFrameOptions)
        out += row(optionLabel(o), QString::fromUtf8(o.description));
    for (const auto &section : m_program.sections)
        out += QStringLiteral("\n%1:\n").arg(QLatin1String(section.first)) + wrapped(QString::fromUtf8(section.second), 0);
    return out + QStringLiteral("\n'%1 help COMMAND' tells more about one command.\n").arg(program);
}

QString CommandLine::manPage() const
{
    const QString program = QLatin1String(m_program.name);
    QString out = QStringLiteral(".TH %1 1 \"\" \"%2 %3\" \"User Commands\"\n.SH NAME\n%2 \\- %4\n")
                      .arg(program.toUpper(), program, QLatin1String(m_program.version),
                           QString::fromUtf8(m_program.summary));
    out += QStringLiteral(".SH SYNOPSIS\n.B %1\n[\\fIoptions\\fR] \\fICOMMAND\\fR [\\fIarguments\\fR]\n").arg(program);
    out += QStringLiteral(".SH DESCRIPTION\n") + roff(QString::fromUtf8(m_program.description));
    out += QStringLiteral(".SH COMMANDS\n");
    for (const CliCommand &c : m_program.commands)
        out += QStringLiteral(".TP\n.B ") + roff(usageParts(&c).join(QLatin1Char(' '))) + roff(QString::fromUtf8(c.description), ".IP");
    out += QStringLiteral(".SH OPTIONS\n");
    const std::vector<CliOption> frame(std::begin(kFrameOptions), std::end(kFrameOptions));
    for (const auto *list : {&m_program.options, &frame})
        for (const CliOption &o : *list)
            out += QStringLiteral(".TP\n.B ") + roff(optionLabel(o)) + roff(QString::fromUtf8(o.description), ".IP");
    for (const auto &section : m_program.sections)
        out += QStringLiteral(".SH %1\n").arg(QString::fromLatin1(section.first).toUpper())
               + roff(QString::fromUtf8(section.second));
    return out;
}

QString CommandLine::completion() const
{
    // Words that complete: the commands, each command's options, the
    // listed values of an option, file names after FILE, PATH and DIR.
    const QString program = QLatin1String(m_program.name);
    const QString function = QStringLiteral("_") + QString(program).replace(QLatin1Char('-'), QLatin1Char('_'));
    QStringList commands, valued, cases, values;
    for (const CliOption &o : m_program.options) {
        if (!o.valueName)
            continue;
        const QString option = QStringLiteral("--") + QLatin1String(o.name), kind = QLatin1String(o.valueName);
        valued << option;
        if (!choices(o).isEmpty())
            values << QStringLiteral("    %1) COMPREPLY=($(compgen -W \"%2\" -- \"$cur\")); return ;;")
                          .arg(option, choices(o).join(QLatin1Char(' ')));
        else if (kind == QLatin1String("DIR"))
            values << QStringLiteral("    %1) COMPREPLY=($(compgen -d -- \"$cur\")); return ;;").arg(option);
        else if (kind == QLatin1String("FILE") || kind == QLatin1String("PATH"))
            values << QStringLiteral("    %1) COMPREPLY=($(compgen -f -- \"$cur\")); return ;;").arg(option);
        else
            values << QStringLiteral("    %1) return ;;").arg(option);
    }
    for (const CliCommand &c : m_program.commands)
        commands << QLatin1String(c.name);
    const QRegularExpression word(QStringLiteral("\\b[a-z][a-z0-9-]*\\b"));
    for (const CliCommand &c : m_program.commands) {
        QStringList words;
        for (const Taken &t : taken(&c))
            words << QStringLiteral("--") + QLatin1String(t.option->name);
        QRegularExpressionMatchIterator it = word.globalMatch(QLatin1String(c.arguments));
        while (it.hasNext())
            words << it.next().captured();
        if (c.name == QLatin1String(kHelp))
            words << commands;
        cases << QStringLiteral("    %1) words=\"%2\" ;;").arg(QLatin1String(c.name), words.join(QLatin1Char(' ')));
    }
    QStringList global;
    for (const Taken &t : taken(nullptr))
        global << QStringLiteral("--") + QLatin1String(t.option->name);
    return QStringLiteral("# bash completion for %1, made by '%1 --completion'\n"
                          "%2()\n{\n"
                          "  local cur=\"${COMP_WORDS[COMP_CWORD]}\" prev=\"${COMP_WORDS[COMP_CWORD-1]}\" command= words i\n"
                          "  case \"$prev\" in\n%3\n  esac\n"
                          "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
                          "    case \"${COMP_WORDS[i]}\" in\n"
                          "      %4) ((i++)) ;;\n      -*) ;;\n      *) command=\"${COMP_WORDS[i]}\"; break ;;\n"
                          "    esac\n  done\n"
                          "  case \"$command\" in\n    '') words=\"%5 %6 --help --version\" ;;\n%7\n  esac\n"
                          "  COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n}\n"
                          "complete -F %2 %1\n")
        .arg(program, function, values.join(QLatin1Char('\n')), valued.join(QLatin1Char('|')),
             commands.join(QLatin1Char(' ')), global.join(QLatin1Char(' ')), cases.join(QLatin1Char('\n')));
}

bool CommandLine::parseNumber(const QString &text, quint64 *value)
{
    bool ok = false;
    const QString t = text.trimmed();
    if (t.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        *value = t.mid(2).toULongLong(&ok, 16);
    else
        *value = t.toULongLong(&ok, 10);
    return ok;
}
