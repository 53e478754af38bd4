// Every single fault of a whole session: entry, configuration, advertising, connection, a request of three
// fragments, its answer, the end. One packet of the chip is lost, cut, sent twice, changed by a bit or
// follows a stray byte; after that the next phone must be served without help from outside.
//
// The stack is one for a process, and so is its station: the faults are shared out to processes of this
// program, each in a sandbox, which mostly sleep. To look closer: BRISCA_FAULTS_ONLY=8.1/cut
// tries these alone, BRISCA_FAULTS_PERIOD_MS=10000 at the pace of a real station.
#include "BluetoothManager.h"
#include "EventPump.h"
#include "Process.h"
#include "Station.h"

#include <iostream>
#include <random>

namespace {
using efr32sim::Bytes;
using efr32sim::Clock;
using efr32sim::CommandId;
using efr32sim::Event;
using efr32sim::EventKind;
using efr32sim::Fault;
using efr32sim::FaultKind;
using efr32sim::Milliseconds;
using efr32sim::PacketType;
using efr32sim::Phone;

constexpr const char* kTty = "/dev/evse/tty_efr32";
constexpr std::size_t kPacketHeader = 4;
constexpr std::size_t kRequestSize = 150;  // three fragments
constexpr Milliseconds kAnswerPatience{500};
constexpr Milliseconds kStrikePatience{3000};
constexpr int kSessions = 5;  // tried, where a busy machine may make one differ
constexpr long kNotServed = -1;
constexpr long kNotStruck = -2;
constexpr CommandId kRssiQuestion{0x08, 0x01};  // and the event of a connection's end
constexpr CommandId kRssiEvent{0x08, 0x03};
// What does not shorten with the watch period: reads of half packets, the questions while advertising is
// refused, two sessions, and a machine so busy that answers come too late.
constexpr Milliseconds kMargin = kPatience;
// Periods within which the next phone is served: 75 s of the ten seconds that a station has.
constexpr double kLimitInPeriods = 7.5;

/// One packet that the chip sends in the course of a session.
struct Packet
{
    std::string name;
    PacketType type;
    CommandId id;
    unsigned earlier;  ///< packets of the same type and id before it
    std::size_t size;
};

struct Trial
{
    const Packet* packet;
    std::string kind;
    Fault fault;
};

CommandId idOf(const Event& event)
{
    return {static_cast<std::uint8_t>(event.number("class")), static_cast<std::uint8_t>(event.number("id"))};
}

bool isRssi(const Event& event)
{
    return idOf(event) == kRssiEvent;
}

std::string eventName(CommandId id)
{
    return "event " + std::to_string(id.classId) + '.' + std::to_string(id.id);
}

/// The service's Bluetooth side on a simulated chip, and an application that returns what it is asked.
class Rig
{
public:
    Rig()
    {
        chip.start();
        BluetoothManager::instance().setUartName(kTty);
        EventPump::setWatchPeriod(m_period);
        QObject::connect(&BluetoothManager::instance(), &BluetoothManager::bleIsStarted,
                         [this] { m_announced = true; });
        enter({});
        m_application.emplace();
        std::thread([this] { echo(); }).detach();
        if (!nextIsServed(Clock::now() + kPatience))
            throw std::runtime_error("no service without a fault");
    }

    /// The packets of a session without a fault.
    std::vector<Packet> walk();
    /// Milliseconds from the fault until the next phone had its answer; kNotServed when it had none in time,
    /// or when the start has not been announced by then, kNotStruck when the packet never came. Nobody here
    /// enters the state anew: no single fault may need that.
    long recovery(const Fault& fault);

    efr32sim::Chip chip{{.ttyPath = kTty,
                         .powerOn = efr32sim::Mode::Firmware,
                         .bootDelay = Milliseconds(30),
                         .history = 4096}};

private:
    void enter(std::optional<Fault> fault);
    std::vector<Packet> packetsOfSession();
    bool ask(Phone& phone);
    void visit(Milliseconds limit, bool stay);
    bool nextIsServed(Clock::time_point deadline);
    [[noreturn]] void echo();

    const Milliseconds m_period{setting("BRISCA_FAULTS_PERIOD_MS", 300)};
    const Milliseconds m_limit =
        std::chrono::duration_cast<Milliseconds>(m_period * kLimitInPeriods) + kMargin;
    std::optional<endtoend::Application> m_application;
    std::atomic<bool> m_announced{false};  // the start of the firmware
    unsigned m_asked = 0;
};

/// As every entry of the firmware state: reset, initialise, start, boot.
void Rig::enter(std::optional<Fault> fault)
{
    BluetoothManager& manager = BluetoothManager::instance();
    manager.resetBleStartedFlag();
    m_announced = false;
    if (!manager.initBleCom() || !manager.start())
        throw std::runtime_error("the stack does not start");
    if (fault)
        chip.inject(*fault);
    chip.reboot();
}

void Rig::echo()
{
    while (true) {
        if (const auto request = m_application->waitRequest())
            m_application->answer(*request);
    }
}

/// One request and its own answer, whatever comes before that.
bool Rig::ask(Phone& phone)
{
    const Bytes request = endtoend::message(kRequestSize, ++m_asked);
    if (!phone.writeMessage(request))
        return false;
    for (auto answer = phone.waitMessage(kAnswerPatience); answer;
         answer = phone.waitMessage(kAnswerPatience))
        if (*answer == request)
            return true;
    return false;
}

/// The phone under whose eyes the fault strikes: it asks once and leaves, or stays until the station has
/// asked the chip for the connection.
void Rig::visit(Milliseconds limit, bool stay)
{
    Phone phone(chip);
    if (!phone.connect(limit))
        return;
    (void)ask(phone);
    auto events = chip.follow();
    if (stay)
        (void)events.waitFor(EventKind::ChipEvent, isRssi, limit);
}

/// The next phone repeats its request, as CoAP does, and connects again when it has lost its link. A station
/// that still sends is let finish: where responses come late it takes longer over an answer than the phone
/// waits for one.
bool Rig::nextIsServed(Clock::time_point deadline)
{
    Phone phone(chip);
    while (Clock::now() < deadline) {
        if (phone.connect(std::chrono::ceil<Milliseconds>(deadline - Clock::now())) && ask(phone))
            return true;
        auto events = chip.follow();
        while (Clock::now() < deadline && events.waitFor(EventKind::Notification, {}, kAnswerPatience)) {
        }
    }
    return false;
}

/// A response that comes late on a busy machine makes a session longer: the shortest one is the true one.
std::vector<Packet> Rig::walk()
{
    std::vector<Packet> shortest = packetsOfSession();
    for (int i = 1; i < kSessions; ++i) {
        std::vector<Packet> packets = packetsOfSession();
        if (packets.size() < shortest.size())
            shortest = std::move(packets);
    }
    return shortest;
}

std::vector<Packet> Rig::packetsOfSession()
{
    auto events = chip.follow();
    enter({});
    visit(kPatience, true);
    (void)nextIsServed(Clock::now() + kPatience);
    std::vector<Packet> packets;
    std::string command;
    bool ended = false;  // when the chip advertises again the session is over
    while (const auto event = events.next(Milliseconds(0))) {
        if (ended && event->kind == EventKind::Connected)
            break;
        ended = ended || event->kind == EventKind::Disconnected;
        if (event->kind == EventKind::Command)
            command = event->text("name");
        const bool response = event->kind == EventKind::Response;
        if (!response && event->kind != EventKind::ChipEvent)
            continue;
        const CommandId id = idOf(*event);
        const PacketType type = response ? PacketType::Response : PacketType::Event;
        const auto earlier = std::ranges::count_if(
            packets, [&](const Packet& packet) { return packet.type == type && packet.id == id; });
        packets.push_back({(response ? "response to " + command : eventName(id)), type, id,
                           static_cast<unsigned>(earlier), kPacketHeader + event->bytes("payload").size()});
    }
    return packets;
}

long Rig::recovery(const Fault& fault)
{
    std::optional<Event> struck;
    for (int tried = 0; !struck && tried <= kSessions; ++tried) {
        chip.clearFaults();
        auto events = chip.follow();
        enter(fault);
        visit(m_limit, fault.command == kRssiQuestion || fault.command == kRssiEvent);
        struck = events.waitFor(EventKind::Fault, {}, kStrikePatience);
    }
    const bool served = struck && nextIsServed(struck->time + m_limit) && m_announced;
    chip.clearFaults();
    if (!struck)
        return kNotStruck;
    return served ? std::chrono::duration_cast<Milliseconds>(Clock::now() - struck->time).count()
                  : kNotServed;
}

// ---- The faults of a packet -------------------------------------------------------------------------------

/// Eight seeds one after the other flip every bit.
unsigned chosenSeed()
{
    return static_cast<unsigned>(setting("BRISCA_FAULTS_SEED", 1));
}

/// Every value from @p first to below @p end (BRISCA_FAULTS_SAMPLE=0), or so many, chosen by the seed.
std::vector<std::size_t> sample(std::size_t first, std::size_t end, const std::string& name)
{
    const int asked = setting("BRISCA_FAULTS_SAMPLE", 1);
    std::vector<std::size_t> all(end - first);
    std::iota(all.begin(), all.end(), first);
    std::vector<std::size_t> chosen;
    std::mt19937 random(static_cast<unsigned>(std::hash<std::string>{}(name)) + chosenSeed());
    std::ranges::sample(all, std::back_inserter(chosen), asked == 0 ? std::ssize(all) : asked, random);
    return chosen;
}

void addFaults(std::vector<Trial>& trials, const Packet& packet)
{
    const std::string key = packet.name + std::to_string(packet.earlier);
    const auto add = [&](const char* kind, Fault fault) {
        fault.command = packet.id;
        fault.type = packet.type;
        fault.skip = packet.earlier;
        trials.push_back({&packet, kind, fault});
    };
    add("lost", {.kind = FaultKind::CutPacket, .length = 0});
    add("twice", {.kind = FaultKind::DoublePacket});
    for (const std::size_t length : sample(1, packet.size, key + "cut"))
        add("cut", {.kind = FaultKind::CutPacket, .length = length});
    for (const std::size_t byte : sample(0, packet.size, key + "flipped"))
        add("flipped", {.kind = FaultKind::FlippedBit, .length = byte * 8 + (byte + chosenSeed()) % 8});
    // What a reader skips, what it takes for the beginning of a response and of an event.
    constexpr std::uint8_t kStrays[] = {0x00, 0x20, 0xA0, 0xFF};
    for (const std::size_t stray : sample(0, std::size(kStrays), key + "stray"))
        add("stray",
            {.kind = FaultKind::NoiseBeforePacket, .length = kStrays[stray], .bytes = {kStrays[stray]}});
}

// ---- A process that tries its share -----------------------------------------------------------------------

/// @return a line for the report: number and name of the packet, kind, detail, outcome
std::string tried(Rig& rig, const Trial& trial, std::ptrdiff_t number)
{
    const StdoutCapture log;
    const long outcome = rig.recovery(trial.fault);
    std::ostringstream line;
    line << number << '|' << trial.packet->name << '|' << trial.kind << '|' << trial.fault.length << '|'
         << outcome << '\n';
    if (outcome == kNotServed)
        std::cerr << "NOT SERVED " << line.str() << log.text() << rig.chip.events().dump() << std::endl;
    return line.str();
}

[[noreturn]] void tryShare(std::size_t share, std::size_t shares, const char* report)
{
    Rig& rig = *new Rig;  // lives as long as the tasks, which end with the process
    const std::vector<Packet> packets = rig.walk();
    const char* const only = std::getenv("BRISCA_FAULTS_ONLY");
    std::vector<Trial> trials;
    for (const Packet& packet : packets)
        addFaults(trials, packet);
    std::ofstream out(report);
    std::size_t number = 0;
    for (const Trial& trial : trials) {
        const std::string name =
            trial.packet->name + '/' + trial.kind + '/' + std::to_string(trial.fault.length);
        if (number++ % shares == share && (only == nullptr || name.find(only) != std::string::npos))
            out << tried(rig, trial, trial.packet - packets.data()) << std::flush;
    }
    out << "done\n" << std::flush;
    ::_exit(0);
}

// ---- All processes ----------------------------------------------------------------------------------------

/// Shows what became of a share's trials. @return whether each one struck
std::vector<bool> judge(const std::string& report)
{
    std::istringstream in(report);
    std::vector<bool> struck;
    std::string line;
    while (std::getline(in, line) && line != "done") {
        const long outcome = std::stol(line.substr(line.rfind('|') + 1));
        struck.push_back(outcome != kNotStruck);
        EXPECT_NE(outcome, kNotServed) << "nobody was served after: " << line;
        std::cout << line << '\n';
    }
    EXPECT_EQ(line, "done") << "a report ended early";
    return struck;
}

TEST(SingleFault, IsSurvivedAndTheNextPhoneServed)
{
    const int shares = setting("BRISCA_FAULTS_PROCESSES", 8);
    const TempDir directory;
    std::vector<std::unique_ptr<Process>> processes;
    const auto file = [&](const char* name, int share) {
        return directory.file(name + std::to_string(share));
    };
    for (int share = 0; share < shares; ++share)
        processes.push_back(std::make_unique<Process>(
            std::vector<std::string>{SANDBOX, std::filesystem::read_symlink("/proc/self/exe"),
                                     std::to_string(share), std::to_string(shares), file("report", share)},
            file("log", share), Process::Environment{"BRISCA_SANDBOX_BIND=" + directory.path()}));
    std::vector<bool> struck;
    for (int share = 0; share < shares; ++share) {
        EXPECT_EQ(processes[share]->waitEnd(std::chrono::hours(12)), "exit 0");
        std::ranges::copy(judge(readFile(file("report", share))), std::back_inserter(struck));
        std::cerr << readFile(file("log", share));
    }
    const auto count = std::ranges::count(struck, true);
    EXPECT_GT(count, 0);
    // Packets that only a late response had brought into a walk do not come again.
    EXPECT_GE(count, std::ssize(struck) * 3 / 4) << "of " << struck.size();
}
}  // namespace

#if defined(__SANITIZE_THREAD__)
// The task "GBS2App" ends by itself, and nobody joins it.
extern "C" const char* __tsan_default_options()
{
    return "report_thread_leaks=0";
}
#endif

int main(int argc, char** argv)
{
    if (argc == 4)
        tryShare(std::stoul(argv[1]), std::stoul(argv[2]), argv[3]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
