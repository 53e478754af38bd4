#include "Endurance.h"

namespace {
using efr32sim::EventKind;

constexpr int kSettledRound = 10;  // at most; lazily made resources are there by then
constexpr int kAttempts = 10;      // of a request
constexpr efr32sim::Milliseconds kAnswerLimit{3000};
constexpr long kResidentToleranceKb = 512;  // pages that the allocator happens to touch

long valueOf(const std::string& status, const std::string& key)
{
    const std::size_t at = status.find(key);
    return at == std::string::npos ? 0 : std::atol(status.c_str() + at + key.size());
}

std::size_t childrenOf(pid_t parent)
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream in(entry.path() / "status");
        const std::string status(std::istreambuf_iterator<char>(in), {});
        count += valueOf(status, "PPid:") == parent ? 1 : 0;
    }
    return count;
}
}  // namespace

Footprint Footprint::of(const Process& process)
{
    const std::string status = readFile("/proc/" + std::to_string(process.pid()) + "/status");
    return {process.threads().size(), process.descriptors().size(), childrenOf(process.pid()),
            valueOf(status, "VmRSS:")};
}

bool Footprint::isWithin(const Footprint& other) const
{
    return threads == other.threads && descriptors <= other.descriptors && children == other.children;
}

Endurance::Endurance()
{
    // Long forms would fill the sandbox's memory with their logs.
    std::ofstream("/evse/data/log.cfg") << "GLOBAL : NOTIC\n";
}

int Endurance::rounds(int shortForm)
{
    return m_rounds = setting("BRISCA_ENDURANCE_ROUNDS", shortForm);
}

bool Endurance::awaitSignal(const std::string& name)
{
    for (std::string signal = client->waitSignal(); !signal.empty(); signal = client->waitSignal()) {
        if (signal == name)
            return true;
    }
    return false;
}

bool Endurance::isAnswered(efr32sim::Phone& phone, const std::string& request, int attempts,
                           efr32sim::Milliseconds limit)
{
    const std::string expected = "echo:" + request;
    m_expected.insert(expected);
    for (int attempt = 0; attempt < attempts; ++attempt) {
        m_repeated += attempt > 0 ? 1 : 0;
        if (!phone.writeMessage(request))
            return false;
        // The answer to a repeated request may come twice, or late.
        while (const auto message = phone.waitMessage(limit))
            if (received.emplace_back(message->begin(), message->end()) == expected)
                return true;
    }
    return false;
}

void Endurance::expectAnswer(efr32sim::Phone& phone, const std::string& request)
{
    EXPECT_TRUE(isAnswered(phone, request, kAttempts, kAnswerLimit)) << request;
}

void Endurance::expectService(const std::string& request)
{
    efr32sim::Phone phone(chip);
    ASSERT_TRUE(phone.connect());
    expectAnswer(phone, request);
}

void Endurance::endRound(int round)
{
    // Half of the rounds of a short form, so that there is always a later round to compare.
    const int settled = std::clamp(m_rounds / 2, 1, kSettledRound);
    if (round + 1 != settled && round + 1 != m_rounds)
        return;
    m_footprints.push_back(Footprint::of(*service));
    // A notification to systemd opens a socket for as long as it takes.
    (void)waitUntil(
        [this] { return (m_footprints.back() = Footprint::of(*service)).isWithin(m_footprints.front()); });
}

void Endurance::TearDown()
{
    if (!service || !service->isRunning()) {
        ADD_FAILURE() << "the service has ended";
        return;
    }
    expectCleanLine();
    expectOwnAnswers();
    EXPECT_EQ(m_footprints.size(), 2) << "no two rounds to compare";
    m_footprints.resize(2);
    expectSameFootprint();
    reportRow();
}

void Endurance::expectSameFootprint() const
{
    const Footprint& settled = m_footprints.front();
    const Footprint& last = m_footprints.back();
    EXPECT_TRUE(last.isWithin(settled)) << "threads, descriptors, children: " << settled.threads << ' '
                                        << settled.descriptors << ' ' << settled.children << ", at the end "
                                        << last.threads << ' ' << last.descriptors << ' ' << last.children;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LE(last.residentKb, settled.residentKb + kResidentToleranceKb);
#endif
}

void Endurance::expectCleanLine()
{
    auto events = chip.followFromStart();
    while (const auto event = events.next(efr32sim::Milliseconds(0))) {
        EXPECT_NE(event->kind, EventKind::PacketRefused) << "console bytes reached the co-processor";
        if (event->kind == EventKind::ConsoleKey) {
            EXPECT_THAT(event->number("key"), testing::AnyOf('\r', '1', '2', '3'))
                << "bytes of the co-processor protocol reached the console";
        } else if (event->kind == EventKind::LineMismatch) {
            EXPECT_NE(event->text("direction"), "to_chip") << "the host spoke in the other mode's settings";
        }
    }
}

void Endurance::expectOwnAnswers() const
{
    for (const std::string& answer : received)
        EXPECT_TRUE(m_expected.contains(answer)) << answer << " answers no request";
}

void Endurance::reportRow() const
{
    const char* const path = std::getenv("BRISCA_ENDURANCE_REPORT");
    if (path == nullptr)
        return;
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    const Footprint& settled = m_footprints.front();
    const Footprint& last = m_footprints.back();
    std::ofstream(path, std::ios::app)
        << test->test_suite_name() << '.' << test->name() << '|' << m_rounds << '|'
        << (HasFailure() ? "FAILED" : "ok") << '|' << m_repeated << '|' << settled.threads << "/"
        << last.threads << '|' << settled.descriptors << "/" << last.descriptors << '|' << settled.children
        << "/" << last.children << '|' << settled.residentKb << "/" << last.residentKb << '\n';
}
