#include <measure/output.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace measure {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(std::string const& path, std::string const& reason)
{
    throw WriteError("cannot write to " + path + ": " + reason);
}

/// Removes a file unless it was renamed.
struct Temporary {
    std::string path;
    ~Temporary()
    {
        std::error_code none;
        fs::remove(path, none);
    }
};

} // namespace

void WriteAside(std::string const& path, std::function<void(std::string const&)> const& write)
{
    std::error_code error;
    auto const kind = fs::status(path, error).type();
    if (kind == fs::file_type::directory)
        Fail(path, "it is a folder");
    if (kind != fs::file_type::regular && kind != fs::file_type::not_found)
        return write(path);
    std::string const target = kind == fs::file_type::regular ? fs::canonical(path).string() : path;
    Temporary const temporary{target + "." + std::to_string(getpid()) + ".part"};
    write(temporary.path);
    fs::rename(temporary.path, target, error);
    if (error)
        Fail(path, error.message());
}

void PrintAside(std::string const& path, std::function<void(std::ostream&)> const& print)
{
    WriteAside(path, [&](std::string const& name) {
        errno = 0;
        std::ofstream out(name, std::ios::binary);
        if (out)
            print(out);
        if (!out.flush())
            Fail(path, std::strerror(errno));
    });
}

} // namespace measure
