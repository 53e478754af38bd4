#pragma once

#include <QJsonObject>
#include <QString>

/// What the tool prints on standard output: text, or JSON with one object a line.
class Report
{
public:
    Report(bool json, bool quiet) : m_json(json), m_quiet(quiet) {}

    /// What was asked for.
    void result(const QJsonObject& object, const QString& text) const;
    /// What merely confirms; nothing when quiet.
    void note(const QJsonObject& object, const QString& text) const;
    /// How far a long work is: a bar on a terminal, elsewhere a line every 10 %. Nothing when quiet.
    void progress(int percent);
    /// Ends the line of the bar.
    void endProgress();
    [[nodiscard]] bool isJson() const { return m_json; }

    /// Prints the text and a line end.
    static void print(const QString& text);
    /// The text without control characters but line ends and tabulators, so that it cannot steer a terminal.
    [[nodiscard]] static QString harmless(QString text);

private:
    bool m_json;
    bool m_quiet;
    int m_percent = -1;  // printed last
    bool m_barIsOpen = false;
};
