// Reading the parameter file section by section.
#include <string>

#include <gtest/gtest.h>

#include "SystemPara.h"
#include "test_support.h"

using testsupport::paramsWith;
using testsupport::paramsWithout;
using testsupport::writeFile;

TEST(SystemParaInit, InlineDefaults) {
    SystemPara p("x.yml");
    EXPECT_FLOAT_EQ(p.gapDelta, 0.5f);
    EXPECT_FLOAT_EQ(p.boxRatio, 0.2f);
    EXPECT_EQ(p.feat_Debug, 0);
    EXPECT_FALSE(p.Debug);
    EXPECT_EQ(p.paramPath, "x.yml");
}

TEST(SystemParaRead, DefaultFileReadsEverySection) {
    SystemPara p(QBCODE_DEFAULT_PARAMS);
    for (const char* s : {"LoadImages", "AlgPipeline", "PrintAnalPipeline", "ImageProcess",
                          "PatternRotation", "PatternFeatures", "DotsTracking", "GeneratePoints",
                          "BlobAnalysis", "PrintScoreCalculate"})
        EXPECT_EQ(p.readPara(s), 1) << s;
    EXPECT_EQ(p.layer, 5);
    EXPECT_FLOAT_EQ(p.dc, 72.0f);
    EXPECT_EQ(p.ctpointFlag, 1);
    EXPECT_DOUBLE_EQ(p.DnRatio, 0.6);
    ASSERT_EQ(p.HessianScale.size(), 2u);
    EXPECT_FLOAT_EQ(p.HessianScale[1], 3.0f);
    ASSERT_EQ(p.LogScale.size(), 2u);
    EXPECT_FLOAT_EQ(p.PeakThresh, 1200.f);
    EXPECT_EQ(p.RotationNum, 90);
    EXPECT_FLOAT_EQ(p.img_padding, 1.f);
    EXPECT_FLOAT_EQ(p.boxRatio, 0.1f);
    EXPECT_DOUBLE_EQ(p.totalAreaScore, 20.0);
    EXPECT_DOUBLE_EQ(p.punishPointMissing, 1.0);
    EXPECT_EQ(p.savePath, "./");
}

TEST(SystemParaRead, UnreadableFileAndUnknownSection) {
    SystemPara missing("/nonexistent/file.yml");
    EXPECT_EQ(missing.readPara("AlgPipeline"), -1);
    EXPECT_EQ(missing.layer, 0);

    SystemPara p(QBCODE_DEFAULT_PARAMS);
    EXPECT_EQ(p.readPara("NoSuchSection"), -1);
    EXPECT_EQ(p.readPara("algpipeline"), -1);
}

TEST(SystemParaRead, MalformedFileIsUnreadable) {
    SystemPara p(writeFile("broken.yml", "%YAML:1.0\n---\nAlgPipeline: [1, 2\n  debug: {\n"));
    EXPECT_EQ(p.readPara("AlgPipeline"), -1);
}

TEST(SystemParaRead, MissingSection) {
    std::string text = "%YAML:1.0\n---\nDotsTracking:\n   boxRatio: 0.3\n   Debug: 1\n";
    SystemPara p(writeFile("only_tracking.yml", text));
    EXPECT_EQ(p.readPara("AlgPipeline"), -2);
    EXPECT_EQ(p.readPara("DotsTracking"), 1);
    EXPECT_FLOAT_EQ(p.boxRatio, 0.3f);
    EXPECT_EQ(p.track_Debug, 1);
}

TEST(SystemParaRead, MissingKeyStopsTheSectionThere) {
    // "ctpointFlag" comes after savePath and imwriteOverlay in the read order.
    std::string text = paramsWithout("AlgPipeline", "ctpointFlag");
    text = testsupport::writeFile("no_ctpoint.yml", text);
    SystemPara p(text);
    p.layer = 42;
    p.ctpointFlag = 9;
    EXPECT_EQ(p.readPara("AlgPipeline"), -2);
    EXPECT_EQ(p.savePath, "./");  // read before the gap
    EXPECT_FLOAT_EQ(p.dc, 72.0f);
    EXPECT_EQ(p.ctpointFlag, 9);  // missing
    EXPECT_EQ(p.layer, 42);       // after the gap, untouched
}

TEST(SystemParaRead, BoolKeysAreIntegersAboveZero) {
    std::string text = paramsWith("ImageProcess", "Debug", "-1");
    size_t at = text.find("   showImg:");
    text.replace(at, text.find('\n', at) - at, "   showImg: 2");
    SystemPara p(writeFile("bools.yml", text));
    EXPECT_EQ(p.readPara("ImageProcess"), 1);
    EXPECT_FALSE(p.Debug);
    EXPECT_TRUE(p.showImg);
}

TEST(SystemParaRead, ScaleSequencesTakeTheirLength) {
    SystemPara p(writeFile("scales.yml",
                           paramsWith("ImageProcess", "HessianScale", "[1.5, 2.5, 3.5]")));
    p.HessianScale = {9.f};
    EXPECT_EQ(p.readPara("ImageProcess"), 1);
    ASSERT_EQ(p.HessianScale.size(), 3u);
    EXPECT_FLOAT_EQ(p.HessianScale[2], 3.5f);

    SystemPara e(writeFile("noscales.yml", paramsWith("ImageProcess", "LogScale", "[]")));
    e.LogScale = {1.f};
    EXPECT_EQ(e.readPara("ImageProcess"), 1);
    EXPECT_TRUE(e.LogScale.empty());
}
