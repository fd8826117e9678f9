#include "MeasuredRun.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace talvo::bench {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kSampleInterval = std::chrono::milliseconds(10);
// Descriptors are counted every other sample: a sampler with tens of
// thousands of descriptors to count would otherwise stretch the memory samples.
constexpr int kSamplesPerFdCount = 2;
constexpr uint16_t kSnmpPort = 161;

double secondsSince(Clock::time_point start, Clock::time_point t = Clock::now())
{
    return std::chrono::duration<double>(t - start).count();
}

std::string jsonString(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + '"';
}

std::string number(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// VmHWM of a live process in KiB; 0 once it is gone (a zombie has none).
long peakKib(pid_t pid)
{
    const std::string status = readFile("/proc/" + std::to_string(pid) + "/status");
    const auto at = status.find("VmHWM:");
    return at == std::string::npos ? 0 : std::strtol(status.c_str() + at + 6, nullptr, 10);
}

// CPU time of all the process's threads in nanoseconds (schedstat: exact,
// where /proc/PID/stat counts 10 ms ticks).
long long threadsCpuNs(pid_t pid)
{
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    DIR* dir = ::opendir(tasks.c_str());
    if (!dir)
        return -1;
    long long total = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.')
            continue;
        total += std::atoll(readFile(tasks + '/' + entry->d_name + "/schedstat").c_str());
    }
    ::closedir(dir);
    return total;
}

// The "Udp:" counters of /proc/net/snmp, which shows the reader's namespace.
std::map<std::string, long long> udpCounters()
{
    std::istringstream in(readFile("/proc/net/snmp"));
    std::string names;
    std::string values;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("Udp: ", 0) != 0)
            continue;
        if (names.empty())
            names = line;
        else
            values = line;
    }
    std::map<std::string, long long> counters;
    std::istringstream n(names);
    std::istringstream v(values);
    std::string name;
    std::string value;
    n >> name;
    v >> value;
    while (n >> name && v >> value)
        counters[name] = std::atoll(value.c_str());
    return counters;
}

// Open descriptors of a live process.
int descriptorCount(pid_t pid)
{
    DIR* dir = ::opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    if (!dir)
        return 0;
    int count = 0;
    while (const dirent* entry = ::readdir(dir))
        count += entry->d_name[0] != '.';
    ::closedir(dir);
    return count;
}

// Busy time of one CPU in seconds (user, nice, system, irq, softirq, steal),
// whoever used it: the program under test and anything else on that CPU.
double cpuBusySeconds(int cpu)
{
    std::istringstream in(readFile("/proc/stat"));
    const std::string name = "cpu" + std::to_string(cpu);
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string first;
        fields >> first;
        if (first != name)
            continue;
        long long v[8] = {};
        for (long long& x : v)
            fields >> x;
        const long long busy = v[0] + v[1] + v[2] + v[5] + v[6] + v[7];
        return static_cast<double>(busy) / static_cast<double>(::sysconf(_SC_CLK_TCK));
    }
    return 0;
}

// A packet socket seeing every frame of the namespace, whose filter keeps only
// the outgoing IPv4 UDP datagrams (first fragments) to `port` on interfaces
// other than loopback. It is never read: PACKET_STATISTICS counts what the
// filter kept, queued or dropped for want of room. -1 when it cannot open.
int openPortCounter(uint16_t port)
{
    constexpr uint8_t kDrop = 14; // the index of the last instruction, from the first
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_HATYPE)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ARPHRD_LOOPBACK, kDrop - 2, 0),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, 0, kDrop - 4),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12), // the EtherType
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ETH_P_IP, 0, kDrop - 6),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 14 + 9), // the IP protocol
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, kDrop - 8),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 14 + 6), // a later fragment has no UDP header
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x1fff, kDrop - 10, 0),
        BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 14),    // the IP header's length
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, 14 + 2), // the UDP destination port
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, port, 0, kDrop - 13),
        BPF_STMT(BPF_RET | BPF_K, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    static_assert(sizeof code / sizeof code[0] == kDrop + 1);
    // Created for no protocol, so nothing is counted before the filter is on.
    const int s = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (s < 0)
        return -1;
    const sock_fprog program{static_cast<unsigned short>(sizeof code / sizeof code[0]), code};
    sockaddr_ll all{};
    all.sll_family = AF_PACKET;
    all.sll_protocol = htons(ETH_P_ALL);
    if (::setsockopt(s, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0 ||
        ::bind(s, reinterpret_cast<const sockaddr*>(&all), sizeof all) != 0) {
        ::close(s);
        return -1;
    }
    return s;
}

// What the counter kept since the last call (the kernel resets its figures
// on each read); a dropped frame counts as kept.
long long countedPackets(int counter)
{
    tpacket_stats stats{};
    socklen_t length = sizeof stats;
    if (counter < 0 || ::getsockopt(counter, SOL_PACKET, PACKET_STATISTICS, &stats, &length) != 0)
        return -1;
    return stats.tp_packets;
}

std::string inodeOf(const char* path)
{
    struct stat s
    {};
    return ::stat(path, &s) == 0 ? std::to_string(s.st_dev) + ':' + std::to_string(s.st_ino) : std::string();
}

// Enters the named namespace and makes sure it is not the machine's own.
std::string enterNamespace(const std::string& name)
{
    if (name.empty() || name.find('/') != std::string::npos)
        return "a namespace name is required";
    const std::string path = "/run/netns/" + name;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return path + ": " + std::strerror(errno);
    const int entered = ::setns(fd, CLONE_NEWNET);
    const int error = errno;
    ::close(fd);
    if (entered != 0)
        return "setns " + path + ": " + std::strerror(error);
    if (inodeOf("/proc/self/ns/net") == inodeOf("/proc/1/ns/net"))
        return path + " is the machine's own network namespace";
    return {};
}

struct Line
{
    double at;
    std::string text;
};

} // namespace

std::optional<std::string> addressFromLine(LineKind kind, std::string_view line)
{
    if (kind == LineKind::TalvoJson) {
        constexpr std::string_view key = "\"ipAddr\":\"";
        const auto at = line.find(key);
        if (at == std::string_view::npos)
            return std::nullopt;
        const auto start = at + key.size();
        const auto end = line.find('"', start);
        if (end == std::string_view::npos)
            return std::nullopt;
        return std::string(line.substr(start, end - start));
    }
    // backend(7): CLASS URI "make-and-model" "info" ...; the host of the URI.
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos)
        return std::nullopt;
    const std::string_view uri = line.substr(blank + 1, line.find(' ', blank + 1) - blank - 1);
    const auto scheme = uri.find("://");
    if (scheme == std::string_view::npos)
        return std::nullopt;
    const auto host = uri.substr(scheme + 3);
    return std::string(host.substr(0, host.find_first_of(":/")));
}

int runMeasured(const RunOptions& options)
{
    if (options.argv.empty()) {
        std::fprintf(stderr, "talvo-bench run: no program given\n");
        return 1;
    }
    // The whole runner enters the namespace: the program inherits it, and
    // /proc/net/snmp then shows that namespace's UDP counters.
    if (const std::string error = enterNamespace(options.netns); !error.empty()) {
        std::fprintf(stderr, "talvo-bench run: %s\n", error.c_str());
        return 1;
    }
    std::set<std::string> expected;
    if (!options.expectFile.empty()) {
        std::istringstream in(readFile(options.expectFile));
        for (std::string address; in >> address;)
            expected.insert(address);
    }

    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        std::perror("pipe2");
        return 1;
    }
    const int err = options.stderrFile.empty()
                        ? ::open("/dev/null", O_WRONLY | O_CLOEXEC)
                        : ::open(options.stderrFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (err < 0) {
        std::perror(options.stderrFile.c_str());
        return 1;
    }
    std::vector<char*> argv;
    for (const std::string& a : options.argv)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    if (options.cpu >= 0)
        CPU_SET(options.cpu, &cpus);

    const int snmpCounter = openPortCounter(kSnmpPort);
    if (snmpCounter < 0)
        std::fprintf(stderr, "talvo-bench run: no SNMP packet counter: %s\n", std::strerror(errno));
    countedPackets(snmpCounter);
    const auto udpBefore = udpCounters();
    const double loadAverage = std::atof(readFile("/proc/loadavg").c_str());
    const double cpuBusyBefore = options.cpu >= 0 ? cpuBusySeconds(options.cpu) : 0;
    const pid_t parent = ::getpid();
    const auto start = Clock::now();
    const pid_t pid = ::fork();
    if (pid < 0) {
        std::perror("fork");
        return 1;
    }
    if (pid == 0) {
        // Only async-signal-safe calls from here to exec; a failure is
        // written to the program's standard error file.
        const auto fail = [err](const char* what) {
            [[maybe_unused]] auto n = ::write(err, what, std::strlen(what));
            ::_exit(127);
        };
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127);
        if (options.cpu >= 0 && ::sched_setaffinity(0, sizeof cpus, &cpus) != 0)
            fail("talvo-bench run: sched_setaffinity failed\n");
        if (options.nofile) {
            const rlimit limit{options.nofile->first, options.nofile->second};
            if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
                fail("talvo-bench run: setrlimit(RLIMIT_NOFILE) failed\n");
        }
        const int in = ::open("/dev/null", O_RDONLY);
        if (in < 0 || ::dup2(in, 0) < 0 || ::dup2(out[1], 1) < 0 || ::dup2(err, 2) < 0)
            fail("talvo-bench run: cannot set up standard input and output\n");
        ::execvp(argv[0], argv.data());
        fail("talvo-bench run: exec failed\n");
    }
    ::close(out[1]);
    ::close(err);

    std::vector<Line> lines;
    std::string partial;
    long peak = 0;
    int peakFds = 0;
    int sample = 0;
    long long idleStartNs = -1;
    long long idleEndNs = -1;
    bool killed = false;
    auto nextSample = start;
    for (bool open = true; open;) {
        pollfd wait{out[0], POLLIN, 0};
        const int ready = ::poll(&wait, 1, static_cast<int>(kSampleInterval.count()));
        const auto now = Clock::now();
        if (ready > 0) {
            char buffer[65536];
            const ssize_t got = ::read(out[0], buffer, sizeof buffer);
            if (got <= 0) {
                open = got < 0 && errno == EINTR;
            } else {
                partial.append(buffer, static_cast<std::size_t>(got));
                for (std::size_t end; (end = partial.find('\n')) != std::string::npos;) {
                    lines.push_back({secondsSince(start, now), partial.substr(0, end)});
                    partial.erase(0, end + 1);
                }
            }
        }
        if (now >= nextSample) {
            nextSample = now + kSampleInterval;
            peak = std::max(peak, peakKib(pid));
            if (sample++ % kSamplesPerFdCount == 0)
                peakFds = std::max(peakFds, descriptorCount(pid));
            const double t = secondsSince(start, now);
            if (options.idleFrom >= 0 && idleStartNs < 0 && t >= options.idleFrom)
                idleStartNs = threadsCpuNs(pid);
            if (options.idleTo >= 0 && idleEndNs < 0 && t >= options.idleTo)
                idleEndNs = threadsCpuNs(pid);
            if (t > options.timeout && !killed) {
                ::kill(pid, SIGKILL);
                killed = true;
            }
        }
    }
    if (!partial.empty())
        lines.push_back({secondsSince(start), partial});
    int status = 0;
    rusage usage{};
    while (::wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    const double exitAt = secondsSince(start);
    const double cpuBusyAfter = options.cpu >= 0 ? cpuBusySeconds(options.cpu) : 0;
    ::close(out[0]);
    const auto udpAfter = udpCounters();
    const long long snmpPackets = countedPackets(snmpCounter);
    if (snmpCounter >= 0)
        ::close(snmpCounter);

    // Which printers the lines name, in order of arrival.
    std::map<std::string, int> seen;
    int devices = 0;
    int duplicates = 0;
    int unexpected = 0;
    double first = -1;
    double last = -1;
    double lastExpected = -1; // when the last expected printer was first named
    for (const Line& line : lines) {
        const auto address = addressFromLine(options.parse, line.text);
        if (!address)
            continue;
        ++devices;
        if (first < 0)
            first = line.at;
        last = line.at;
        if (++seen[*address] > 1)
            ++duplicates;
        else if (expected.contains(*address))
            lastExpected = line.at;
        if (!expected.empty() && !expected.contains(*address))
            ++unexpected;
    }
    int found = 0;
    std::vector<std::string> missing;
    for (const std::string& address : expected) {
        if (seen.contains(address))
            ++found;
        else
            missing.push_back(address);
    }
    if (!options.linesFile.empty()) {
        std::ofstream file(options.linesFile);
        for (const Line& line : lines)
            file << number(line.at, 6) << '\t' << line.text << '\n';
    }

    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    const double user = seconds(usage.ru_utime);
    const double system = seconds(usage.ru_stime);
    const auto udpDelta = [&](const char* name) {
        const auto after = udpAfter.find(name);
        const auto before = udpBefore.find(name);
        return (after == udpAfter.end() ? 0 : after->second) -
               (before == udpBefore.end() ? 0 : before->second);
    };
    std::string missingList;
    for (std::size_t i = 0; i < missing.size() && i < 10; ++i)
        missingList += (i ? "," : "") + jsonString(missing[i]);

    std::string json = "{";
    json += "\"expected\":" + std::to_string(expected.size());
    json += ",\"found\":" + std::to_string(found);
    json += ",\"device_lines\":" + std::to_string(devices);
    json += ",\"duplicates\":" + std::to_string(duplicates);
    json += ",\"unexpected\":" + std::to_string(unexpected);
    json += ",\"missing\":" + std::to_string(missing.size());
    json += ",\"missing_first\":[" + missingList + "]";
    json += ",\"first_s\":" + (first < 0 ? std::string("null") : number(first, 4));
    json += ",\"last_s\":" + (last < 0 ? std::string("null") : number(last, 4));
    json += ",\"last_expected_s\":" + (lastExpected < 0 ? std::string("null") : number(lastExpected, 4));
    json += ",\"exit_s\":" + number(exitAt, 4);
    if (options.deadline >= 0)
        json += ",\"deadline_s\":" + number(options.deadline, 3) +
                ",\"late_s\":" + number(exitAt - options.deadline, 4);
    json += ",\"cpu_s\":" + number(user + system, 4);
    json += ",\"user_s\":" + number(user, 4);
    json += ",\"sys_s\":" + number(system, 4);
    json += ",\"peak_kib\":" + std::to_string(peak);
    json += ",\"peak_fds\":" + std::to_string(peakFds);
    if (options.nofile)
        json += ",\"nofile_soft\":" + std::to_string(options.nofile->first);
    if (idleStartNs >= 0 && idleEndNs >= 0 && options.idleTo > options.idleFrom)
        json += ",\"idle_window_s\":[" + number(options.idleFrom, 1) + ',' + number(options.idleTo, 1) +
                "],\"idle_cpu_pct\":" +
                number(100.0 * static_cast<double>(idleEndNs - idleStartNs) / 1e9 /
                           (options.idleTo - options.idleFrom),
                       3) +
                ",\"idle_after_last\":" + (last >= 0 && last < options.idleFrom ? "true" : "false");
    json += ",\"exit_status\":" +
            std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    json += ",\"signal\":" + std::to_string(WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    json += std::string(",\"timed_out\":") + (killed ? "true" : "false");
    json += ",\"snmp_packets\":" + (snmpPackets < 0 ? std::string("null") : std::to_string(snmpPackets));
    json += ",\"udp_out_datagrams\":" + std::to_string(udpDelta("OutDatagrams"));
    json += ",\"udp_in_datagrams\":" + std::to_string(udpDelta("InDatagrams"));
    json += ",\"udp_rcvbuf_errors\":" + std::to_string(udpDelta("RcvbufErrors"));
    json += ",\"udp_no_ports\":" + std::to_string(udpDelta("NoPorts"));
    // What else ran on the program's CPU meanwhile (other processes, and
    // interrupts): figures taken on a busy machine are not comparable.
    if (options.cpu >= 0)
        json += ",\"cpu_others_s\":" + number(std::max(0.0, cpuBusyAfter - cpuBusyBefore - user - system), 2);
    json += ",\"loadavg_1m\":" + number(loadAverage, 2);
    json += "}";
    std::printf("%s\n", json.c_str());
    return 0;
}

} // namespace talvo::bench
