#include "Report.h"

#include <QJsonDocument>

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {
constexpr int kBarWidth = 40;
constexpr int kLineStep = 10;

bool onTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}
}  // namespace

QString Report::harmless(QString text)
{
    const auto steers = [](QChar character) {
        return character.category() == QChar::Other_Control && character != QLatin1Char('\n') &&
               character != QLatin1Char('\t');
    };
    text.remove(QLatin1Char('\r'));
    std::replace_if(text.begin(), text.end(), steers, QLatin1Char('?'));
    return text;
}

void Report::print(const QString& text)
{
    (void)std::puts(harmless(text).toUtf8().constData());
    (void)std::fflush(stdout);  // who reads a pipe sees each line as it comes
}

void Report::result(const QJsonObject& object, const QString& text) const
{
    print(m_json ? QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) : text);
}

void Report::note(const QJsonObject& object, const QString& text) const
{
    if (!m_quiet)
        result(object, text);
}

void Report::progress(int percent)
{
    if (m_quiet || percent == m_percent)
        return;
    m_barIsOpen = !m_json && onTerminal();
    if (m_barIsOpen) {
        const int done = std::clamp(percent, 0, 100) * kBarWidth / 100;
        (void)std::printf("\r[%s%s] %3d %%", std::string(done, '#').c_str(),
                          std::string(kBarWidth - done, '.').c_str(), percent);
        (void)std::fflush(stdout);
    } else if (m_json || percent / kLineStep != m_percent / kLineStep || m_percent < 0) {
        result({{"progress", percent}}, QString("firmware update: %1 %").arg(percent));
    }
    m_percent = percent;
}

void Report::endProgress()
{
    if (m_barIsOpen)
        (void)std::puts("");
    m_barIsOpen = false;
}
