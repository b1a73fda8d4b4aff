#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/logging/loggerimpl_internal.h>

#include <boost/thread/lock_guard.hpp>

namespace NKelmic {

namespace {

safestring TopicStatus(safestring const& name, level_t level)
{
    safestring text = "<Topic";
    AddXmlAttr("name", name, text);
    AddXmlAttr("level", Text("%d", level), text);
    return text + "/>\n";
}

} // namespace

safestring rule_t::GetStatus() const
{
    safestring text = "<Rule";
    AddXmlAttr("topic", topic, text);
    AddXmlAttr("subtopic", subtopic, text);
    AddXmlAttr("pattern", pattern, text);
    AddXmlAttr("enabling", enabling ? "true" : "false", text);
    return text + "/>\n";
}

safestring LoggerImpl::GetLoggerStatus() const
{
    boost::lock_guard<boost::recursive_mutex> const lock(mutex_);
    safestring text = "<MorvaneLoggerStatus ver=\"1\">";
    for (auto const& [topic, level] : levels_)
        text += TopicStatus(topic == ~0ULL ? safestring("all") : TopicName(topic), level);
    for (auto const& [name, level] : custom_levels_)
        text += TopicStatus(name, level);
    for (rule_t const& rule : rules_)
        text += rule.GetStatus();

    text += "<LogFile";
    AddXmlAttr("name", file_name_, text);
    AddXmlAttr("format", format_.Text(), text);
    text += "/>\n";
    for (LogSink const* sink : sinks_)
        text += Text("<LogSink addr=\"%p\"/>\n", static_cast<void const*>(sink));
    for (safestring const& name : known_topics_) {
        text += "<KnownTopic";
        AddXmlAttr("name", name, text);
        text += "/>\n";
    }
    return text + "</MorvaneLoggerStatus>";
}

} // namespace NKelmic
