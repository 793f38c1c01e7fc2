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
    const std::pair<int, std::string> cases[] = {{-1, ""},     {2, ""},      {3, error},
                                                 {4, warning}, {5, warning}, {6, info},
                                                 {7, debug},   {8, debug2},  {9, debug2 + "DEBUG3 TestBody: \n"}};
    for (const auto& [level, tags] : cases) {
        setTraceLevel(level);
        LOG(ERROR, "");
        LOG(WARNING, "");
        LOG(INFO, "");
        LOG(DEBUG, "");
        LOG(DEBUG1, "");
        LOG(DEBUG2, "");
        LOG(DEBUG3, "");
        EXPECT_EQ(tags, transcript()) << "level " << level;
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
    LOG(INFO, "");
    EXPECT_EQ("<6>[INFO] file.h:45 (TestBody) - ", fakeSystem.lastLog);
    LOG(DEBUG, "");
    EXPECT_EQ("<7>[DEBUG] file.h:47 (TestBody) - ", fakeSystem.lastLog);
    LOG(DEBUG1, "");
    EXPECT_EQ("<7>[DEBUG1] file.h:49 (TestBody) - ", fakeSystem.lastLog);
    LOG(DEBUG2, "");
    EXPECT_EQ("<7>[DEBUG2] file.h:51 (TestBody) - ", fakeSystem.lastLog);
    LOG(DEBUG3, "");
    EXPECT_EQ("<7>[DEBUG3] file.h:53 (TestBody) - ", fakeSystem.lastLog);
}

} // namespace
