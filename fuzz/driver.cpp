// Runs FuzzOne on changed seeds: fuzz_<subject> [RUNS [SEED]]. The same numbers give the same
// inputs; the input that was running at a crash stands in fuzz_<subject>.input.

#include "fuzz.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace {

class Changer {
public:
    explicit Changer(unsigned long seed) : random_(seed), seeds_(FuzzSeeds()) {}

    std::string Next()
    {
        std::string text = seeds_[Below(seeds_.size())];
        for (std::size_t n = Below(8); n > 0; --n)
            Change(text);
        return text;
    }

private:
    std::size_t Below(std::size_t n) { return n ? random_() % n : 0; }

    void Change(std::string& text)
    {
        static constexpr unsigned char telling[] = {0,   1,   0x7F, 0x80, 0xFF,
                                                    ',', '.', '-',  '(',  '"'};
        std::size_t const at = Below(text.size() + 1);
        std::string const& other = seeds_[Below(seeds_.size())];
        switch (Below(6)) {
        case 0:
            text.resize(at);
            break;
        case 1:
            text.erase(at, Below(16));
            break;
        case 2:
            text.insert(at, other, Below(other.size()), Below(32));
            break;
        case 3:
            text.insert(at, 1 + Below(4), static_cast<char>(telling[Below(sizeof(telling))]));
            break;
        case 4:
            if (at < text.size())
                text[at] = static_cast<char>(telling[Below(sizeof(telling))]);
            break;
        default:
            if (at < text.size())
                text[at] = static_cast<char>(text[at] ^ (1 << Below(8)));
        }
    }

    std::mt19937_64 random_;
    std::vector<std::string> seeds_;
};

/// Holds the running input in a file, in case it is the last.
class Keeper {
public:
    explicit Keeper(std::string name)
        : name_(std::move(name)), file_(open(name_.c_str(), O_CREAT | O_WRONLY, 0644))
    {
    }
    ~Keeper()
    {
        close(file_);
        std::remove(name_.c_str());
    }
    void Keep(std::string const& input) const
    {
        if (ftruncate(file_, 0) != 0 || pwrite(file_, input.data(), input.size(), 0) < 0)
            std::perror(name_.c_str());
    }

private:
    std::string name_;
    int file_;
};

} // namespace

int main(int argc, char** argv)
{
    unsigned long const runs = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000000;
    unsigned long const seed = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 1;
    Changer changer(seed);
    Keeper const keeper{std::string(argv[0]) + ".input"};
    for (unsigned long i = 0; i < runs; ++i) {
        std::string const input = changer.Next();
        keeper.Keep(input);
        FuzzOne(input);
    }
    std::printf("%lu inputs\n", runs);
}
