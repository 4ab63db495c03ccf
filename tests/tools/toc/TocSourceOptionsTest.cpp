// TocSourceOptions: --offsets, --cue, --image and --device on a CLI11 app,
// exactly one of them, turned into the request they name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TocSourceOptions.h"

namespace {

// Parses `args` (without the program name) on an app with the options.
void parse(CLI::App& app, std::vector<std::string> args) {
    std::reverse(args.begin(), args.end());  // CLI11 takes the arguments last first
    app.parse(args);
}

}  // namespace

TEST(TocSourceOptionsTest, Request_WhenOffsetsGiven_CarriesThem) {
    CLI::App app;
    TocSourceOptions options;
    options.addTo(app);
    parse(app, {"--offsets", "150", "18150", "36150"});
    const TocRequest request = options.request();
    EXPECT_TRUE(options.given());
    EXPECT_EQ(request.origin, TocOrigin::OFFSETS);
    EXPECT_EQ(request.offsets, (std::vector<uint32>{150, 18150, 36150}));
}

TEST(TocSourceOptionsTest, Request_WhenCueGiven_CarriesThePath) {
    CLI::App app;
    TocSourceOptions options;
    options.addTo(app);
    parse(app, {"--cue", "disc.cue"});
    EXPECT_EQ(options.request().origin, TocOrigin::CUE);
    EXPECT_EQ(options.request().path, "disc.cue");
}

TEST(TocSourceOptionsTest, Request_WhenImageGiven_CarriesThePath) {
    CLI::App app;
    TocSourceOptions options;
    options.addTo(app);
    parse(app, {"--image", "disc.nrg"});
    EXPECT_EQ(options.request().origin, TocOrigin::IMAGE);
    EXPECT_EQ(options.request().path, "disc.nrg");
}

TEST(TocSourceOptionsTest, Request_WhenDeviceGivenWithPath_CarriesThePath) {
    CLI::App app;
    TocSourceOptions options;
    options.addTo(app);
    parse(app, {"--device", "/dev/sr1"});
    EXPECT_EQ(options.request().origin, TocOrigin::DEVICE);
    EXPECT_EQ(options.request().path, "/dev/sr1");
}

TEST(TocSourceOptionsTest, Request_WhenDeviceGivenAlone_NamesTheDefaultDrive) {
    CLI::App app;
    bool json = false;
    app.add_flag("--json", json);
    TocSourceOptions options;
    options.addTo(app);
    parse(app, {"--device", "--json"});
    EXPECT_EQ(options.request().origin, TocOrigin::DEVICE);
    EXPECT_EQ(options.request().path, "");
    EXPECT_TRUE(json);
}

TEST(TocSourceOptionsTest, AddTo_WhenTwoSourcesGiven_RefusesTheCommandLine) {
    CLI::App app;
    TocSourceOptions options;
    options.addTo(app);
    EXPECT_THROW(parse(app, {"--cue", "a.cue", "--device"}), CLI::ParseError);
}

TEST(TocSourceOptionsTest, AddTo_WhenNoSourceGiven_RefusesTheCommandLine) {
    CLI::App app;
    TocSourceOptions options;
    options.addTo(app);
    EXPECT_THROW(parse(app, {}), CLI::ParseError);
}

TEST(TocSourceOptionsTest, Given_WhenTheCallersOwnAlternativeWasGiven_IsFalse) {
    CLI::App app;
    TocSourceOptions options;
    std::string toc;
    options.addTo(app)->add_option("--toc", toc);
    parse(app, {"--toc", "0000960046E6"});
    EXPECT_FALSE(options.given());
    EXPECT_EQ(toc, "0000960046E6");
}
