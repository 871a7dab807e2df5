/// A front panel for the terminal: shows parameters of a device, and sets what is typed.
///
///     front_panel rec-7 'Clip*' FanSpeed
///     > FanSpeed=70 %
///
/// One thread: it waits for the keyboard and for changes together.
#include <device/device.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <string>

namespace {

using Values = std::map<std::string, std::string>;

/// A device may hold any text; the terminal must not obey it.
std::string Printable(std::string text)
{
    std::ranges::replace_if(
        text, [](unsigned char c) { return std::iscntrl(c); }, '?');
    return text;
}

void Draw(const vexa::DeviceStatus& status, const Values& values, const std::string& message)
{
    printf("\033[H\033[J%s, %s %s\n\n", vexa::NameOf(status.state), status.model.c_str(),
           status.reason.c_str());
    const bool isOld = status.state != vexa::DeviceState::kInStep;
    for (const auto& [name, text] : values)
        printf("%-32s %s%s\n", name.c_str(), Printable(text).c_str(), isOld ? "  (old)" : "");
    printf("\n%s\n> ", Printable(message).c_str());
    fflush(stdout);
}

/// "FanSpeed=70 %" @return what became of it.
std::string Enter(vexa::Device& device, const std::string& line)
{
    const size_t sign = line.find('=');
    if (sign == std::string::npos) return line.empty() ? "" : "NAME=VALUE";
    const std::string name = line.substr(0, sign);
    const vexa::SetResult result = device.Set(name, line.substr(sign + 1));
    return name + ": " + (result ? "stored" : result.reason);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) return fprintf(stderr, "usage: %s DEVICE [PATTERN...]\n", argv[0]), 2;
    vexa::Device device(argv[1]);
    vexa::ChangeQueue changes = device.Changes({argv + 2, argv + argc});
    Values values;
    std::string model, message, line;
    for (;;) {
        const vexa::DeviceStatus status = device.Status();
        if (status.model != model) values.clear();  // another device, with other parameters
        model = status.model;
        while (const auto change = changes.Next(std::chrono::milliseconds(0)))
            values[change->name] = change->Text();
        Draw(status, values, message);

        pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {changes.Descriptor(), POLLIN, 0}};
        poll(sources, 2, 500);  // the status may change, too
        if (sources[0].revents == 0) continue;
        char key = 0;
        if (read(STDIN_FILENO, &key, 1) != 1) return 0;
        if (key != '\n') {
            line += key;
            continue;
        }
        message = Enter(device, line);
        line.clear();
    }
}
