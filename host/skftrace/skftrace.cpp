// The SKF call tracer: a token library that forwards every call to another
// one and writes a line per call. Which library, and where the lines go,
// comes from skftrace.conf beside this file or from the environment (see
// docs/skftrace.md).
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <tuple>
#include <unordered_map>

#pragma GCC visibility push(default)
#include "skf/skfapi.h"
#pragma GCC visibility pop

#include "skftracefunctions.h"

namespace {

std::string hex(const void *data, size_t size)
{
    static const char digits[] = "0123456789abcdef";
    const auto *p = static_cast<const unsigned char *>(data);
    std::string out;
    for (size_t i = 0; i < size; ++i) {
        out += digits[p[i] >> 4];
        out += digits[p[i] & 15];
    }
    return out;
}

// Short buffers whole, longer ones by length and a digest prefix, so that
// lines stay short and two runs with the same bytes read the same.
std::string bytes(const void *data, size_t size)
{
    if (!data)
        return "null";
    std::string out = "[" + std::to_string(size) + "]";
    if (size <= 16)
        return out + hex(data, size);
    unsigned int h = 2166136261u;
    const auto *p = static_cast<const unsigned char *>(data);
    for (size_t i = 0; i < size; ++i)
        h = (h ^ p[i]) * 16777619u;
    char digest[10];
    std::snprintf(digest, sizeof(digest), "#%08x", h);
    return out + digest;
}

std::string quoted(const char *text, size_t size)
{
    std::string out = "\"";
    for (size_t i = 0; i < size; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20 || c > 0x7e) {
            char esc[5];
            std::snprintf(esc, sizeof(esc), "\\x%02x", c);
            out += esc;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

std::string quoted(const char *text)
{
    return text ? quoted(text, std::strlen(text)) : "null";
}

std::string dirOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::string trim(const std::string &s)
{
    size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b])))
        ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1])))
        --e;
    return s.substr(b, e - b);
}

// The process-wide state: the target library, the output and the names
// given to handles.
class Tracer
{
public:
    Tracer()
    {
        Dl_info self{};
        dladdr(reinterpret_cast<void *>(&SKF_EnumDev), &self);
        const std::string dir = dirOf(self.dli_fname ? self.dli_fname : "");
        std::string library, output;
        std::ifstream conf(dir + "/skftrace.conf");
        for (std::string line; std::getline(conf, line);) {
            const size_t eq = line.find('=');
            if (trim(line).empty() || trim(line)[0] == '#' || eq == std::string::npos)
                continue;
            const std::string key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
            if (key == "library")
                library = value;
            else if (key == "output")
                output = value;
        }
        if (const char *env = std::getenv("SKFTRACE_LIBRARY"))
            library = env;
        if (const char *env = std::getenv("SKFTRACE_OUTPUT"))
            output = env;
        const auto absolute = [&dir](const std::string &p) { return p.empty() || p[0] == '/' ? p : dir + "/" + p; };
        const size_t pid = output.find("%p");
        if (pid != std::string::npos)
            output.replace(pid, 2, std::to_string(getpid()));
        if (!output.empty())
            m_fd = ::open(absolute(output).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (m_fd < 0)
            m_fd = STDERR_FILENO;
        if (!library.empty())
            m_library = dlopen(absolute(library).c_str(), RTLD_NOW | RTLD_LOCAL);
        // A configuration naming the tracer itself would call itself forever.
        if (m_library && dlsym(m_library, "SKF_EnumDev") == reinterpret_cast<void *>(&SKF_EnumDev))
            m_library = nullptr;
        if (!m_library)
            write("skftrace: no library to forward to (" + absolute(library) + ")\n");
    }

    void *resolve(const char *name) const { return m_library ? dlsym(m_library, name) : nullptr; }

    std::string handle(const void *h)
    {
        if (!h)
            return "null";
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_names.find(h);
        if (it == m_names.end())
            it = m_names.emplace(h, ++m_last).first;
        return "h" + std::to_string(it->second);
    }

    // A closed handle's address may come back for a new object: that one
    // gets a new name.
    void forget(const void *h)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_names.erase(h);
    }

    // One write per line on an O_APPEND descriptor: lines of threads and
    // processes never mix, and a crash loses nothing written.
    void write(const std::string &line) const
    {
        ssize_t ignored = ::write(m_fd, line.data(), line.size());
        (void)ignored;
    }

private:
    std::mutex m_mutex;
    std::unordered_map<const void *, int> m_names;
    int m_last = 0;
    int m_fd = -1;
    void *m_library = nullptr;
};

Tracer &tracer()
{
    static Tracer instance;
    return instance;
}

} // namespace

// How arguments are shown. Each kind takes what it needs before the call
// and writes its text after it, given the result.
namespace skftrace_kinds {

struct Shown
{
    std::string text;
    std::string operator()(ULONG) const { return text; }
};

inline Shown H(const void *h) { return {tracer().handle(h)}; }
inline Shown S(const char *s) { return {quoted(s)}; }
inline Shown U(unsigned long v) { return {std::to_string(v)}; }
inline Shown U(long v) { return {std::to_string(v)}; }
inline Shown U(int v) { return {std::to_string(v)}; }
inline Shown U(unsigned int v) { return {std::to_string(v)}; }
inline Shown X(ULONG v)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%X", v);
    return {text};
}
inline Shown BI(const void *p, ULONG n) { return {bytes(p, n)}; }
inline Shown ID(const unsigned char *p, ULONG n) { return {p ? quoted(reinterpret_cast<const char *>(p), n) : "null"}; }
inline Shown P(const void *p) { return {p ? "buf" : "null"}; }
template <typename T>
Shown SI(const T *p)
{
    return {bytes(p, sizeof(T))};
}

struct HC
{
    const void *h;
    explicit HC(const void *handle) : h(handle) {}
    std::string operator()(ULONG) const
    {
        const std::string name = tracer().handle(h);
        tracer().forget(h);
        return name;
    }
};

struct HO
{
    void **p;
    template <typename T>
    explicit HO(T **out) : p(reinterpret_cast<void **>(out))
    {
    }
    std::string operator()(ULONG) const { return p ? "->" + tracer().handle(*p) : "null"; }
};

// A length in and out: what the caller offered and what came back.
struct IO
{
    ULONG *p;
    ULONG in;
    explicit IO(ULONG *length) : p(length), in(length ? *length : 0) {}
    std::string operator()(ULONG) const { return p ? std::to_string(in) + "->" + std::to_string(*p) : "null"; }
};

template <typename T>
struct UOut
{
    T *p;
    std::string operator()(ULONG) const { return p ? "->" + std::to_string(*p) : "null"; }
};
template <typename T>
UOut<T> UO(T *p)
{
    return {p};
}

// Bytes written into a buffer whose size travels in *length; never more
// than the caller offered, whatever the library says it wrote.
struct BO
{
    const void *p;
    const ULONG *length;
    ULONG offered;
    BO(const void *buffer, const ULONG *len) : p(buffer), length(len), offered(len ? *len : 0) {}
    std::string operator()(ULONG ret) const
    {
        if (!p)
            return "null";
        if (ret != SAR_OK || !length)
            return "buf";
        return "->" + bytes(p, *length < offered ? *length : offered);
    }
};

// A multi-string written back: its names, up to the first empty one.
struct SL : BO
{
    using BO::BO;
    std::string operator()(ULONG ret) const
    {
        if (!p || ret != SAR_OK || !length)
            return p ? "buf" : "null";
        const char *text = static_cast<const char *>(p);
        const ULONG size = *length < offered ? *length : offered;
        std::string out = "->{";
        for (ULONG at = 0; at < size && text[at];) {
            const size_t n = strnlen(text + at, size - at);
            out += (at ? "," : "") + quoted(text + at, n);
            at += ULONG(n) + 1;
        }
        return out + "}";
    }
};

inline std::string summary(const DEVINFO *i)
{
    return "{sn=" + quoted(i->SerialNumber, strnlen(i->SerialNumber, sizeof(i->SerialNumber)))
           + ",label=" + quoted(i->Label, strnlen(i->Label, sizeof(i->Label))) + "}";
}
inline std::string summary(const FILEATTRIBUTE *i) { return "{size=" + std::to_string(i->FileSize) + "}"; }
inline std::string summary(const ECCCIPHERBLOB *b) { return "{CipherLen=" + std::to_string(b->CipherLen) + "}"; }
template <typename T>
std::string summary(const T *p)
{
    return bytes(p, sizeof(T));
}

template <typename T>
struct SOut
{
    const T *p;
    std::string operator()(ULONG ret) const { return !p ? "null" : ret != SAR_OK ? "out" : "->" + summary(p); }
};
template <typename T>
SOut<T> SO(const T *p)
{
    return {p};
}

template <typename Tuple>
std::string line(const char *name, const Tuple &shown, ULONG ret, bool forwarded)
{
    std::string out = name;
    out += '(';
    std::apply([&](const auto &...arg) {
        bool first = true;
        ((out += (first ? "" : ", ") + arg(ret), first = false), ...);
        (void)first;
    }, shown);
    char result[48];
    std::snprintf(result, sizeof(result), ") = 0x%08X%s\n", ret, forwarded ? "" : " (not in the library)");
    return out + result;
}

} // namespace skftrace_kinds

#define SKFTRACE_DEFINE(name, params, args, ...)                                                                       \
    extern "C" __attribute__((visibility("default"))) ULONG name params                                                \
    {                                                                                                                  \
        using namespace skftrace_kinds;                                                                                \
        using Fn = decltype(&::name);                                                                                  \
        static const Fn target = reinterpret_cast<Fn>(tracer().resolve(#name));                                      \
        const auto shown = std::make_tuple(__VA_ARGS__);                                                               \
        const ULONG ret = target ? target args : ULONG(SAR_NOTSUPPORTYETERR);                                          \
        tracer().write(line(#name, shown, ret, target != nullptr));                                                    \
        return ret;                                                                                                    \
    }

SKFTRACE_FUNCTIONS(SKFTRACE_DEFINE)
