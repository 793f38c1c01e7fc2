#include "log.h"

#include "CommandLine.h"
#include "fakeSystem.h"

namespace {

using LogTest = SystemTest;

std::string emittedTags()
{
    fakeSystem.transcript.clear();
    LOG(ERROR, "");
    LOG(WARNING, "");
    LOG(INFO, "");
    LOG(DEBUG, "");
    LOG(DEBUG1, "");
    LOG(DEBUG2, "");
    LOG(DEBUG3, "");
    std::string tags;
    for (std::size_t at = 0; (at = fakeSystem.transcript.find('[', at)) != std::string::npos;
         ++at) {
        tags += fakeSystem.transcript.substr(at - 3, fakeSystem.transcript.find(']', at) - at + 4);
    }
    return tags;
}

TEST_F(LogTest, TheLevelDecidesWhatIsEmittedWithWhichPriority)
{
    const std::string warnings = "<3>[ERROR]<4>[WARNING]";
    const std::string debug = warnings + "<6>[INFO]<7>[DEBUG]<7>[DEBUG1]";
    const std::pair<int, std::string> cases[] = {
        {-1, ""},
        {2, ""},
        {3, "<3>[ERROR]"},
        {4, warnings},
        {5, warnings},
        {6, warnings + "<6>[INFO]"},
        {7, debug},
        {8, debug + "<7>[DEBUG2]"},
        {9, debug + "<7>[DEBUG2]<7>[DEBUG3]"},
        {10, debug + "<7>[DEBUG2]<7>[DEBUG3]"},
    };
    for (const auto& [level, tags] : cases) {
        setTraceLevel(level);
        EXPECT_EQ(tags, emittedTags()) << "level " << level;
    }
}

TEST_F(LogTest, NothingIsEvaluatedWhileTheGateIsClosed)
{
    int evaluated = 0;
    setTraceLevel(3);
    LOG(WARNING, "%d", ++evaluated);

    TraceSettings* settings = g_traceObject->m_settings;
    g_traceObject->m_settings = nullptr;
    LOG(ERROR, "%d", ++evaluated);
    g_traceObject->m_settings = settings;

    TraceObject* object = g_traceObject;
    g_traceObject = nullptr;
    LOG(ERROR, "%d", ++evaluated);
    g_traceObject = object;

    EXPECT_EQ(0, evaluated);
    EXPECT_EQ("", transcript());
}

TEST_F(LogTest, AMessageTellsFileAndFunctionAndKeepsItsLineEnd)
{
    LOG(DEBUG, "%02x %s\n", 10, "%s");
    LOG_AS("another", INFO, "plain");
    EXPECT_EQ("<7>[DEBUG] logTest.cpp (TestBody) - 0a %s\n\n"
              "<6>[INFO] logTest.cpp (another) - plain\n",
              transcript());
    static_assert(logBaseName("no/such.folder/file.cpp")[0] == 'f');
    static_assert(logBaseName("file.cpp")[0] == 'f');
}

} // namespace
