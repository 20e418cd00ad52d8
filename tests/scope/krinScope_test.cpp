// krin-scope's parts on their own: the fields it finds in the schema, how it
// thins a fast field, what waits for a slow page; and its command line, whose
// refusals match krin-tap's.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "ToolProcess.h"
#include "lumotypes/host/Plugin.h"
#include "tools/common/Schema.h"
#include "tools/scope/Decimator.h"
#include "tools/scope/FieldCatalog.h"
#include "tools/scope/Viewer.h"

namespace {

using namespace std::chrono_literals;
using lumo::scope::LatestVector;
using lumo::scope::MinMaxDecimator;
using lumo::scope::PlotField;
using lumo::scope::PlotPoint;
using lumo::test::ToolProcess;

class ScopeSchema : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        plugin = new lumotypes::host::Plugin(lumotypes::host::Plugin::defaultPath());
        schema = new lumo::tools::Schema(*plugin);
    }

    const PlotField& fieldOf(const std::vector<PlotField>& fields, const std::string& path) {
        const auto found = std::find_if(fields.begin(), fields.end(), [&](const auto& f) { return f.path == path; });
        EXPECT_NE(found, fields.end()) << path;
        return *found;
    }

    static lumotypes::host::Plugin* plugin;
    static lumo::tools::Schema* schema;
};
lumotypes::host::Plugin* ScopeSchema::plugin = nullptr;
lumo::tools::Schema* ScopeSchema::schema = nullptr;

TEST_F(ScopeSchema, NestedAndRepeatedFieldsAreListedWithTheirPaths) {
    const auto fields = lumo::scope::plotFieldsOf(*schema->find("SimCentErrors"));
    const auto& nested = fieldOf(fields, "img_gp1_err.x_err_in_pixels");
    EXPECT_FALSE(nested.array);
    EXPECT_EQ(nested.kind, "number");
    const auto& repeated = fieldOf(fields, "wfs_pds_err[].flux");
    EXPECT_TRUE(repeated.array);
    EXPECT_EQ(fieldOf(fields, "img_pds_err.readout_err").kind, "bool");
    // Four single and four repeated errors of four numbers each.
    EXPECT_EQ(fields.size(), 32u);
}

TEST_F(ScopeSchema, EnumerationsCarryTheNamesOfTheirValues) {
    const auto fields = lumo::scope::plotFieldsOf(*schema->find("LumoMode"));
    const auto& mode = fieldOf(fields, "controlMode");
    EXPECT_EQ(mode.kind, "enum");
    const auto* type = schema->find("LumoMode")->FindFieldByName("controlMode")->enum_type();
    ASSERT_EQ(mode.enumNames.size(), static_cast<std::size_t>(type->value_count()));
    EXPECT_EQ(mode.enumNames.at(type->value(0)->number()), type->value(0)->name());
}

TEST_F(ScopeSchema, ValuesAreReadThroughNestedAndRepeatedFields) {
    const auto* type = schema->find("SimCentErrors");
    auto message = schema->newMessage(*type);
    std::string reason;
    ASSERT_TRUE(lumo::tools::fromJson(
        R"({"img_gp1_err":{"x_err_in_pixels":1.5,"y_err_in_pixels":0,"flux":0,"readout_err":true},
            "img_gp2_err":{"x_err_in_pixels":0,"y_err_in_pixels":0,"flux":0,"readout_err":false},
            "img_gp3_err":{"x_err_in_pixels":0,"y_err_in_pixels":0,"flux":0,"readout_err":false},
            "img_pds_err":{"x_err_in_pixels":0,"y_err_in_pixels":0,"flux":0,"readout_err":false},
            "wfs_gp1_err":[{"x_err_in_pixels":0,"y_err_in_pixels":0,"flux":2.5,"readout_err":false},
                           {"x_err_in_pixels":0,"y_err_in_pixels":0,"flux":-4,"readout_err":false}]})",
        *message, reason))
        << reason;
    const auto fields = lumo::scope::plotFieldsOf(*type);
    EXPECT_EQ(lumo::scope::scalarValue(*message, fieldOf(fields, "img_gp1_err.x_err_in_pixels")), 1.5);
    EXPECT_EQ(lumo::scope::scalarValue(*message, fieldOf(fields, "img_gp1_err.readout_err")), 1);
    std::vector<double> values;
    lumo::scope::arrayValues(*message, fieldOf(fields, "wfs_gp1_err[].flux"), values);
    EXPECT_EQ(values, (std::vector<double>{2.5, -4}));
}

TEST(ScopeThinning, EachBucketLeavesItsMinimumAndMaximumInTimeOrder) {
    MinMaxDecimator decimator(0.01);
    const auto now = MinMaxDecimator::Clock::now();
    std::vector<PlotPoint> out;
    // A hundred samples in the first 10 ms bucket: a peak at 3 ms, a trough at 7 ms.
    for (int i = 0; i < 100; ++i) {
        const double time = 100.0 + i * 0.0001;
        const double value = i == 30 ? 9 : i == 70 ? -9 : 0;
        decimator.add(time, value, now, out);
    }
    EXPECT_TRUE(out.empty()) << "the bucket is still open";
    decimator.add(100.0105, 1, now, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].value, 9);
    EXPECT_DOUBLE_EQ(out[0].time, 100.003);
    EXPECT_EQ(out[1].value, -9);
}

TEST(ScopeThinning, AConstantFieldLeavesOnePointPerBucket) {
    MinMaxDecimator decimator(0.01);
    const auto now = MinMaxDecimator::Clock::now();
    std::vector<PlotPoint> out;
    // One second of a 10 kHz field: a hundred buckets.
    for (int i = 0; i <= 10000; ++i) {
        decimator.add(i * 0.0001 + 0.00005, 2.25, now, out);
    }
    EXPECT_EQ(out.size(), 100u);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](const PlotPoint& p) { return p.value == 2.25; }));
}

TEST(ScopeThinning, ASlowFieldsBucketIsLetOutAfterItsWidthInWallTime) {
    MinMaxDecimator decimator(0.01);
    const auto start = MinMaxDecimator::Clock::now();
    std::vector<PlotPoint> out;
    decimator.add(5.0, 1, start, out);
    decimator.closeIfDue(start + 5ms, out);
    EXPECT_TRUE(out.empty());
    decimator.closeIfDue(start + 10ms, out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].value, 1);
}

TEST(ScopeThinning, AnArrayLeavesOnlyItsLatestVectorPerInterval) {
    LatestVector latest(50ms);
    const auto start = LatestVector::Clock::now();
    double time = 0;
    std::vector<double> values;
    latest.add(1.0, {1, 2});
    ASSERT_TRUE(latest.takeIfDue(start, time, values));
    latest.add(1.1, {3, 4});
    latest.add(1.2, {5, 6});
    EXPECT_FALSE(latest.takeIfDue(start + 10ms, time, values));
    ASSERT_TRUE(latest.takeIfDue(start + 50ms, time, values));
    EXPECT_EQ(time, 1.2);
    EXPECT_EQ(values, (std::vector<double>{5, 6}));
}

TEST(ScopePage, AFullBoxDropsAndCountsWhatDoesNotFit) {
    lumo::scope::Viewer viewer(3);
    viewer.offerPoints("0/gp1_az", {{1, 1}, {2, 2}});
    viewer.offerPoints("0/gp2_az", {{1, 5}, {2, 6}});
    EXPECT_EQ(viewer.dropped(), 1u);
    EXPECT_EQ(viewer.takeBatch(), R"({"points":{"0/gp1_az":[[1,2],[1,2]],"0/gp2_az":[[1],[5]]},"vectors":{}})");
    EXPECT_EQ(viewer.takeBatch(), "") << "the box is empty once taken";
    viewer.offerPoints("0/gp1_az", {{3, 0.1}});
    EXPECT_EQ(viewer.takeBatch(), R"({"points":{"0/gp1_az":[[3],[0.10000000000000001]]},"vectors":{}})");
}

TEST(ScopeCommandLine, AnUnknownTopicIsRefusedAsKrinTapRefusesIt) {
    ToolProcess scope(LUMO_SCOPE_PATH, {"krin.ps://127.0.0.1:7400", "Telescope"});
    ToolProcess tap(LUMO_TAP_PATH, {"krin.ps://127.0.0.1:7400", "Telescope"});
    EXPECT_EQ(scope.wait(60s), 2);
    EXPECT_EQ(tap.wait(60s), 2);
    const std::string text = "unknown topic 'Telescope'; see --help for the topics";
    EXPECT_NE(scope.err().find("krin-scope: " + text), std::string::npos) << scope.err();
    EXPECT_NE(tap.err().find("krin-tap: " + text), std::string::npos) << tap.err();
}

TEST(ScopeCommandLine, ABadUriIsRefusedAsKrinTapRefusesIt) {
    ToolProcess scope(LUMO_SCOPE_PATH, {"krin.ps://*:7400/x", "CentOpt"});
    ToolProcess tap(LUMO_TAP_PATH, {"krin.ps://*:7400/x", "CentOpt"});
    EXPECT_EQ(scope.wait(60s), 2);
    EXPECT_EQ(tap.wait(60s), 2);
    const std::string text = "host * can only be bound, not connected to";
    EXPECT_NE(scope.err().find(text), std::string::npos) << scope.err();
    EXPECT_NE(tap.err().find(text), std::string::npos) << tap.err();
}

TEST(ScopeCommandLine, AUriWithoutItsTopicIsRefused) {
    ToolProcess scope(LUMO_SCOPE_PATH, {"krin.ps://127.0.0.1:7400", "CentOpt", "krin.ps://127.0.0.1:7401"});
    EXPECT_EQ(scope.wait(60s), 2);
    EXPECT_NE(scope.err().find("expected URI TOPIC pairs, got 3 arguments"), std::string::npos) << scope.err();
}

TEST(ScopeCommandLine, AListenAddressWithoutPortIsRefused) {
    ToolProcess scope(LUMO_SCOPE_PATH, {"--listen", "127.0.0.1", "krin.ps://127.0.0.1:7400", "CentOpt"});
    EXPECT_EQ(scope.wait(60s), 2);
    EXPECT_NE(scope.err().find("option --listen takes HOST:PORT, not '127.0.0.1'"), std::string::npos)
        << scope.err();
}

TEST(ScopeCommandLine, HelpNamesEveryTopicAndWhatExposingThePageMeans) {
    ToolProcess scope(LUMO_SCOPE_PATH, {"--help"});
    EXPECT_EQ(scope.wait(60s), 0);
    EXPECT_NE(scope.out().find("FieldStablizationTopicIn"), std::string::npos) << scope.out();
    EXPECT_NE(scope.out().find("whoever reaches the address can"), std::string::npos) << scope.out();
}

}  // namespace
