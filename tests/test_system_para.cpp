// Reading the parameter file section by section. Malformed and mistyped files, and scale
// lists of every length, are the hostile-input table's.

#include "SystemPara.h"
#include "test_support.h"

TEST(SystemParaRead, MissingSectionUnknownSectionAndUnreadableFile) {
    std::string text = "%YAML:1.0\n---\nDotsTracking:\n   boxRatio: 0.3\n   Debug: 1\n";
    SystemPara p(writeFile("only_tracking.yml", text));
    EXPECT_EQ(p.readPara("AlgPipeline"), -2);
    EXPECT_EQ(p.readPara("NoSuchSection"), -1);
    EXPECT_EQ(SystemPara("/nonexistent/file.yml").readPara("DotsTracking"), -1);
    EXPECT_EQ(p.readPara("DotsTracking"), 1);
    EXPECT_FLOAT_EQ(p.boxRatio, 0.3f);
    EXPECT_EQ(p.track_Debug, 1);
}

TEST(SystemParaRead, MissingKeyStopsTheSectionThere) {
    // "ctpointFlag" comes after savePath and imwriteOverlay in the read order.
    SystemPara p(writeFile("no_ctpoint.yml", paramsWithout("AlgPipeline", "ctpointFlag")));
    p.layer = 42;
    p.ctpointFlag = 9;
    EXPECT_EQ(p.readPara("AlgPipeline"), -2);
    EXPECT_EQ(p.savePath, "./");  // read before the gap
    EXPECT_EQ(p.ctpointFlag, 9);  // missing
    EXPECT_EQ(p.layer, 42);       // after the gap, untouched
}
