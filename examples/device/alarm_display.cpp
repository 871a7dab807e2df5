/// Shows the alarms that are raised, for as many seconds as it is told or until it is stopped. Alarms travel over
/// UDP, on the device itself:
///
///     alarm_display udp://127.0.0.1
///
/// Everything comes in callbacks, on one thread of the device.
#include <device/device.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>

namespace {

struct Raised {
    std::string since, text;
};

std::string ClockTime(time_t seconds)
{
    char text[32];
    tm parts{};
    localtime_r(&seconds, &parts);
    return {text, strftime(text, sizeof text, "%F %T", &parts)};
}

class Display {
  public:
    void ShowStatus(const vexa::DeviceStatus& status)
    {
        m_title = std::string(vexa::NameOf(status.state)) + " " + status.reason;
        Draw();
    }
    void Follow(const vexa::Change& change)
    {
        std::string text = change.Text();  // "raised, ERROR: no signal"
        std::ranges::replace_if(
            text, [](unsigned char c) { return std::iscntrl(c); }, '?');
        if (text.starts_with("raised"))
            m_raised.try_emplace(change.name, ClockTime(change.time.tv_sec)).first->second.text = text;
        else if (m_raised.erase(change.name) == 0)
            return;
        Draw();
    }

  private:
    void Draw() const
    {
        printf("\033[H\033[J%s\n\n", m_title.c_str());
        for (const auto& [name, alarm] : m_raised)
            printf("%s  %-28s %s\n", alarm.since.c_str(), name.c_str(), alarm.text.c_str());
        if (m_raised.empty()) puts("no alarm is raised");
        fflush(stdout);
    }

    std::string m_title;
    std::map<std::string, Raised> m_raised;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) return fprintf(stderr, "usage: %s DEVICE [SECONDS]\n", argv[0]), 2;
    Display display;
    vexa::Device device(argv[1]);
    const auto status = device.WatchStatus([&](const vexa::DeviceStatus& now) { display.ShowStatus(now); });
    const auto alarms =
        device.Watch({"*_Alarm"}, [&](const vexa::Change& change) { display.Follow(change); });
    if (argc > 2) return sleep(static_cast<unsigned int>(atoi(argv[2]))) != 0;
    for (;;) pause();
}
