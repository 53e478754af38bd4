#include "ClientFixture.h"
#include "efr32sim/Chip.h"

namespace {
/// The client on a line whose other end the test plays.
class Console : public ClientFixture
{
protected:
    Console() { EXPECT_TRUE(client.open()); }

    Pty line;
    An760 client{line.slavePath().c_str()};
    std::vector<char> received;
};

TEST_F(Console, TakesTheTextUpToThePrompt)
{
    for (const auto& [title, text, found] :
         Rows<std::string, std::size_t>{{"the prompt alone", "BL >", 4},
                                        {"after the menu", "\r\n1. upload\r\n\xC3\xBC BL >", 20},
                                        {"another byte breaks it", "BLx >BL >", 9},
                                        {"a doubled letter breaks it", "BBL >BL >", 9},
                                        {"a beginning breaks it", "BL BL >BL >", 11}}) {
        SCOPED_TRACE(title);
        received.clear();
        line.write(text);
        EXPECT_TRUE(client.waitCommandPrompt(received));
        EXPECT_EQ(std::string(received.begin(), received.end()), text.substr(0, found));
    }
}

TEST_F(Console, KeepsTheNewest64KiBOfABabblingChip)
{
    std::string babble;
    for (int word = 0; babble.size() < 300'000; ++word)
        babble += std::to_string(word) + ' ';
    babble += "BL >";
    const std::jthread chip([&] { line.write(babble); });
    EXPECT_TRUE(client.waitCommandPrompt(received));
    EXPECT_EQ(std::string(received.begin(), received.end()), babble.substr(babble.size() - 65536));
    EXPECT_LE(received.capacity(), 2 * 65536U) << "the whole babble was kept at first";
}

TEST_F(Console, AClosedPortAndAHungUpLineRefuseEveryOperation)
{
    client.close();
    expectRefusals(client);
    EXPECT_EQ(line.readAvailable(), "");
    EXPECT_TRUE(client.open());
    line.hangUp();
    expectRefusals(client);
    for (const char* const text :
         {"during the commend to start the firmware is send", "during the reading of firmware version.",
          "during the upload of a new firmware version."})
        EXPECT_EQ(log.count("<ERROR> [BriscaService.comm.An760] Error "s + text), 2);
    EXPECT_EQ(log.count("<WARN > [BriscaService.comm.An760] Bootloader prompt not found."), 2);
}

TEST_F(Console, SendsSingleKeysAndForgetsWhatWasSaidBefore)
{
    line.write("BL > of an earlier dialogue");
    ASSERT_TRUE(line.hasArrived());
    EXPECT_TRUE(client.sendCarriageReturn());
    EXPECT_EQ(line.read(1), "\r");
    EXPECT_TRUE(client.startFirmware());
    EXPECT_EQ(line.read(1), "2");
    line.write("menu\r\nBL >");
    EXPECT_TRUE(client.waitCommandPrompt(received));
    EXPECT_EQ(std::string(received.begin(), received.end()), "menu\r\nBL >");
}

TEST_F(ClientFixture, TellsTheChipsInformationTextAsABusCanCarryIt)
{
    efr32sim::Chip chip({.ttyPath = directory.file("tty"), .resetPath = {}});
    An760 client(directory.file("tty").c_str());
    chip.start();
    EXPECT_TRUE(client.open());
    // U+FDD0 and U+1FFFF are noncharacters.
    const std::string unfit("\0\xEF\xB7\x90\xF0\x9F\xBF\xBF", 8);
    chip.setConsoleTexts("\r\n1. upload\r\n", "BL > ", unfit + "version 2.3 \xC3\xBC\xFF\r\n");
    QString version;
    EXPECT_TRUE(client.getFirmwareVersion(version));
    EXPECT_EQ(version, QString::fromUtf8("version 2.3 \xC3\xBC\xEF\xBF\xBD\r\n\r\n1. upload\r\nBL >"));
}
}  // namespace
