/// mainstay: the control daemon. It owns the parameters of the device and serves them to applications.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "config/access/protocol/network_protocol.h"
#include "config/access/server/access_rules.h"
#include "config/base/harmless.h"
#include "config/base/log.h"
#include "config/base/standard_descriptors.h"
#include "device/catalogue.h"
#include "mainstay/config_file.h"
#include "mainstay/daemon.h"
#include "mainstay/service_manager.h"
#include "services/product/product_id.h"
#include "services/product/product_models.h"

namespace {

namespace net = vexa::corvalis::config::access;

constexpr const char* kConfigFile = "/etc/mainstay/mainstay.conf";
constexpr const char* kFooter =
    "The model comes from the environment variable PRODUCT_ID or the file /etc/product_id.\n"
    "Exit status: 0 stopped by SIGTERM or SIGINT, 1 cannot serve, 2 usage or unknown model.";

/// Each client takes a descriptor or two.
void RaiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// "model OAK (250 parameters)".
std::string ModelText()
{
    const std::string model = CProductID::getProductID();
    const size_t count = vexa::Catalogue::Of(model)->All().size();
    return (model.empty() ? "no model" : "model " + model) + " (" + std::to_string(count) + " parameters)";
}

/// A misspelt name would be served as a device with the parameters that all models have.
bool IsModelKnown()
{
    const std::string model = CProductID::getProductID();
    if (model.empty() || FindProductModel(model)) return true;
    vexa::Print("mainstay: unknown model \"%s\"\n", vexa::Harmless(model).c_str());
    return false;
}

int Usage(std::string reason)
{
    // The parser's words for a file of another kind.
    constexpr std::string_view kUnknown = "INI was not able to parse ";
    if (const size_t at = reason.find(kUnknown); at != std::string::npos)
        reason.replace(at, kUnknown.size(), "unknown option ");
    fprintf(stderr, "mainstay: %s; \"mainstay --help\" shows how it is used\n", reason.c_str());
    return 2;
}

/// What the service manager gives: several directories stand there with colons.
std::string StateDirectoryOfService()
{
    const char* const directories = getenv("STATE_DIRECTORY");
    const std::string_view all = directories ? directories : "";
    return std::string(all.substr(0, all.find(':')));
}

/// Tells the service manager meanwhile that the daemon is well: a store that hangs keeps it from doing so.
/// @return the signal.
int AwaitStop(Daemon& daemon, const sigset_t& stops)
{
    int signal = 0;
    const auto interval = WatchdogInterval();
    if (!interval) {
        sigwait(&stops, &signal);
        return signal;
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(*interval);
    const timespec time{static_cast<time_t>(seconds.count()),
                        static_cast<long>((*interval - seconds).count())};
    while ((signal = sigtimedwait(&stops, nullptr, &time)) == -1) {
        daemon.AskStore();
        NotifyServiceManager("WATCHDOG=1");
    }
    return signal;
}

int Serve(const Options& options, const sigset_t& stops)
{
    Daemon daemon;
    if (!daemon.Start(options)) return 1;
    const std::string endpoints = daemon.Endpoints();
    vexa::Print("mainstay: ready, %s, %s%s%s\n", ModelText().c_str(), endpoints.c_str(),
                endpoints.empty() ? "" : ", ", daemon.StateText().c_str());
    NotifyServiceManager("READY=1");
    const int signal = AwaitStop(daemon, stops);
    vexa::Print("mainstay: stopping, %s\n", strsignal(signal));
    NotifyServiceManager("STOPPING=1");
    return 0;
}

/// @param bound  those before it, to which it is added.
std::string ObjectionToBind(const std::string& text, std::vector<std::string>& bound)
{
    // That it is this machine's, an interface behind "%" included, the system tells later.
    const size_t end = std::min(text.find('%'), text.size());
    const auto address = net::PeerAddress::Parse(text.substr(0, end));
    if (!address) return "\"" + text + "\" is no address of IPv4 or IPv6";
    const auto isIPv6 = [](const std::string& one) { return one.find(':') != std::string::npos; };
    const auto isAll = [](const std::string& one) { return one == "0.0.0.0" || one == "::"; };
    const std::string plain = address->Text() + text.substr(end);
    if (isIPv6(text) != isIPv6(plain)) return "\"" + text + "\" is " + plain + ": write it so";
    const auto other = std::ranges::find_if(bound, [&](const std::string& one) {
        return one == plain || (isIPv6(one) == isIPv6(plain) && (isAll(one) || isAll(plain)));
    });
    if (other != bound.end()) return "\"" + text + "\" is listened on already, by " + *other;
    bound.push_back(plain);
    return "";
}

/// A list of the command line replaces that of the file.
void AddAccess(CLI::App& app, Options& options)
{
    const auto bound = std::make_shared<std::vector<std::string>>();
    app.add_option(
           "--bind", options.bind,
           "Address of this machine to listen on, once or more; UDP takes those of IPv4. Default: all")
        ->check([bound](const std::string& text) { return ObjectionToBind(text, *bound); })
        ->allow_extra_args(false)
        ->type_name("ADDRESS");
    const auto rules = std::make_shared<net::AccessRules>();
    app.add_option(
           "--allow", options.allow,
           "Whom to serve, once or more: an address, or \"10.1.0.0/16\", and \"=read\", \"=write\", "
           "\"=admin\" or \"=none\"; without a right it is read. The longest prefix that fits counts. "
           "Without any rule: this machine alone")
        ->check([rules](const std::string& text) {
            const std::string reason = rules->Add(text);
            return reason.empty() ? reason : "\"" + text + "\" is no rule: " + reason;
        })
        ->allow_extra_args(false)
        ->type_name("RULE");
}

void AddServing(CLI::App& app, Options& options)
{
    app.add_option("--tcp-port", options.tcpPort, "TCP port; 0: a free one, named when ready")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--udp-port", options.udpPort, "UDP port; 0: a free one, named when ready")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_flag("--no-tcp", options.noTcp, "Do not serve TCP");
    app.add_flag("--no-udp", options.noUdp, "Do not serve UDP, and send no multicast events");
    app.add_option_function<std::string>(
           "--byteorder", [&](const std::string&) { options.payloadOrder = std::endian::big; },
           "Byte order of texts on the network: big, as the device has it; default: the host's own")
        ->check(CLI::IsMember({"big"}))
        ->type_name("ORDER");
    app.add_flag("--no-mq", options.noQueues, "Do not serve message queues");
    app.add_option(
           "--stall-timeout", options.stallSeconds,
           "Seconds after which a TCP client is cut off that takes nothing of what there is for it, has not "
           "connected, or leaves a request unfinished")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    app.add_option(
           "--control", options.control,
           "The control socket; default: \"control\" in $RUNTIME_DIRECTORY, else in the state directory")
        ->type_name("PATH");
}

void AddState(CLI::App& app, Options& options)
{
    app.add_option("--state", options.stateDirectory,
                   "Directory in which settings, presets and the history of changes are kept")
        ->type_name("DIR")
        ->default_str("the first of $STATE_DIRECTORY; without, nothing is kept");
    app.add_option("--commit-interval", options.commitInterval,
                   "Seconds from the first change that is not on the disk to the moment when it is written")
        ->check(CLI::Range(0.01, 3600.0))
        ->check([](const std::string& text) {
            return std::isnan(strtod(text.c_str(), nullptr)) ? "not a number" : std::string();
        })
        ->capture_default_str();
    app.add_option("--history", options.historyLimit, "Changes that the history keeps")
        ->check(CLI::Range(size_t{100}, size_t{10'000'000}))
        ->capture_default_str();
    app.add_option("--media", options.media,
                   "Directory of the media, for presets; StoragePath may name one in it")
        ->type_name("DIR");
}

/// Before any other thread exists, so that all of them leave these signals to the main thread.
sigset_t BlockStops()
{
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stops, nullptr);
    return stops;
}

int Run(int argc, char** argv)
{
    Options options{.tcpPort = net::kNetworkPort, .udpPort = net::kNetworkPort};
    CLI::App app("Serves the parameters of this device to applications.", "mainstay");
    app.footer(kFooter);
    AddServing(app, options);
    AddAccess(app, options);
    AddState(app, options);
    const auto file = std::make_shared<ConfigFile>();
    app.config_formatter(file);
    app.set_config("--config", kConfigFile, "Options, and what commands do", false);
    app.allow_config_extras(CLI::config_extras_mode::error);
    app.set_version_flag("--version", std::string("mainstay ") + MAINSTAY_VERSION);
    try {
        app.parse(argc, argv);
        if (!IsModelKnown()) return 2;
        options.actions = file->Actions(CProductID::getProductID());
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ConfigError& error) {
        return Usage(app["--config"]->as<std::string>() + ": " + error.what());
    } catch (const CLI::ParseError& error) {
        return Usage(error.what());
    }

    if (options.stateDirectory.empty()) options.stateDirectory = StateDirectoryOfService();
    const sigset_t stops = BlockStops();
    signal(SIGPIPE, SIG_IGN);
    umask(0007);  // applications of the daemon's group may use its queue
    RaiseDescriptorLimit();
    return Serve(options, stops);
}

}  // namespace

int main(int argc, char** argv)
{
    vexa::OpenStandardDescriptors();
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {  // no memory, or no thread
        vexa::Print("mainstay: cannot serve: %s\n", error.what());
        return 1;
    }
}
