// Set the logger up: levels by topic, rules that hold lines back, a sink of one's own.
#include <memblock/base/raise.h>
#include <memblock/logging/logger.h>

#include <cstdio>

using namespace NKelmic;

namespace {

/// Gets every line that passes. It runs under the logger's lock: be short, wait for nobody.
class Console : public LogSink {
public:
    void Log(safestring const& topic, safestring const& subtopic, level_t level,
             safestring const& message, safestring const&) override
    {
        std::printf("%s/%s (%d): %s\n", topic.c_str(), subtopic.c_str(), level, message.c_str());
    }
};

void Work(int file)
{
    // Two plain loads while the topic is off; the text is only built for a line that is wanted.
    if (Logger::Enabled(topic_file, 7))
        Logger::Log(topic_file, "open", 7, Text("file %d opened", file));
    Logger::Log(topic_file, "read", 2, Text("file %d is damaged", file));
    Logger::Log("segmentation", "seeds", 5, Text("%d seeds", 10 * file)); // a topic of one's own
}

} // namespace

int main()
{
    static Console console;
    Logger::AddLogSink(console);

    std::printf("-- nothing is on\n");
    Work(1);

    std::printf("-- errors of files, and all of the segmentation\n");
    Logger::SetLogging("file", 2);
    Logger::SetLogging("segmentation", 9);
    Work(2);

    std::printf("-- everything but what comes from reading\n");
    Logger::SetLogging("all", 9);
    Logger::AddDisablingRule("file", "read", "");
    Work(3);

    std::printf("-- of that, file 4 all the same\n");
    Logger::AddEnablingRule("file", "*", "file 4*");
    Work(4);
    Work(5);

    Logger::RemoveLogSink(console);
}
