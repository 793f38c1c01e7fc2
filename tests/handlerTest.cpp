// What of the handler no run of main shows.
#include "PowerFileHandler.h"

#include "fakeSystem.h"

namespace {

using HandlerTest = SystemTest;

TEST_F(HandlerTest, OwnsItsCommands)
{
    struct Noted : MfrMode {
        explicit Noted(const char* name) : m_name(name) {}
        ~Noted() override { fakeSystem.transcript += m_name; }
        const char* m_name;
    };
    setTraceLevel(2);
    EXPECT_EQ(START + LOCK + UNLOCK + "cleared\nfile\ntarget\nclose 1000\n", record([] {
                  PowerFileHandler handler;
                  handler.getTargetCommands() = {new Noted("cleared\n")};
                  handler.clear(handler.getTargetCommands());
                  handler.getFileCommands() = {nullptr, new Noted("file\n")};
                  handler.getTargetCommands().push_back(new Noted("target\n"));
              }));
}

TEST_F(HandlerTest, ComparesFileVersions)
{
    const struct {
        std::uint8_t record[8];
        std::string version;
    } cases[] = {{{1, 2}, ""}, {{0, 2}, "2.0"}, {{2, 2}, "2.2"}, {{1, 3}, "3.1"}, {{1, 1}, "1.1"}};
    fakeSystem.bus = {0x4D, 0x5A, '0', '0', 1, 2};
    PowerFileHandler handler;
    transcript();
    for (const auto& [bytes, version] : cases) {
        MfrDate mfrDate;
        mfrDate.setData(bytes);
        handler.setFileMfrDate(mfrDate);
        const std::string text = version.empty() ? "INFO comparePowerFileVersions: Versions equal: version 2.1\ntrue\n"
                                                 : "WARNING comparePowerFileVersions: Versions differ : file version "
                                                       + version + " <-> Target version 2.1\nfalse\n";
        EXPECT_EQ(text, recordResult([&handler] { return handler.comparePowerFileVersions(); }));
    }
}

TEST_F(HandlerTest, CompareNeedsListsOfEqualLength)
{
    PowerFileHandler handler;
    setTraceLevel(4);
    transcript();
    handler.getFileCommands() = {new Page};
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(LOCK + "WARNING compare: Target commands and file commands sizes are different or 0\n" + UNLOCK
                      + "false\n",
                  recordResult([&handler] { return handler.compare(); }));
        handler.getFileCommands().swap(handler.getTargetCommands());
    }
}

} // namespace
