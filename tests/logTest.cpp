#include "log.h"

#include "fakeSystem.h"

namespace {

using LogTest = SystemTest;

TEST_F(LogTest, TheLevelDecidesWhatIsEmitted)
{
    const std::string error = "ERROR TestBody: \n";
    const std::string warning = error + "WARNING TestBody: \n";
    const std::string info = warning + "INFO TestBody: \n";
    const std::string debug = info + "DEBUG TestBody: \nDEBUG1 TestBody: \n";
    const std::string debug2 = debug + "DEBUG2 TestBody: \n";
    const std::tuple<int, std::string, std::string> cases[] = {
        {-1, "", ""},        {2, "", ""},         {3, error, "<3>"},
        {4, warning, "<4>"}, {5, warning, "<4>"}, {6, info, "<6>"},
        {7, debug, "<7>"},   {8, debug2, "<7>"},  {9, debug2 + "DEBUG3 TestBody: \n", "<7>"}};
    for (const auto& [level, tags, lastPriority] : cases) {
        setTraceLevel(level);
        LOG(ERROR, "");
        LOG(WARNING, "");
        LOG(INFO, "");
        LOG(DEBUG, "");
        LOG(DEBUG1, "");
        LOG(DEBUG2, "");
        LOG(DEBUG3, "");
        EXPECT_EQ(tags, transcript()) << "level " << level;
        EXPECT_EQ(lastPriority, fakeSystem.lastLog.substr(0, 3)) << "level " << level;
    }
}

TEST_F(LogTest, NothingIsEvaluatedWhileTheGateIsClosed)
{
    int evaluated = 0;
    setTraceLevel(3);
    LOG(WARNING, "%d", ++evaluated);
    TraceSettings* const settings = std::exchange(g_traceObject->m_settings, nullptr);
    LOG(ERROR, "%d", ++evaluated);
    TraceObject* const object = std::exchange(g_traceObject, nullptr);
    LOG(ERROR, "%d", ++evaluated);
    g_traceObject = object;
    g_traceObject->m_settings = settings;
    EXPECT_EQ(0, evaluated);
    EXPECT_EQ("", transcript());
}

TEST_F(LogTest, PriorityFileLineAndFunctionComeWithAMessageWhichKeepsItsLineEnd)
{
    static_assert(logBaseName("file.cpp")[0] == 'f');
#line 41 "no/such.folder/file.h"
    LOG(ERROR, "%02x %s\n", 10, "%s");
    EXPECT_EQ("<3>[ERROR] file.h:41 (TestBody) - 0a %s\n", fakeSystem.lastLog);
    LOG_AS("another", WARNING, "plain");
    EXPECT_EQ("<4>[WARNING] file.h:43 (another) - plain", fakeSystem.lastLog);
    LOG(DEBUG, "");
    EXPECT_EQ("<7>[DEBUG] file.h:45 (TestBody) - ", fakeSystem.lastLog);
}

} // namespace
