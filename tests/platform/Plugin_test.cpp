#include <gtest/gtest.h>

#include <string>

#include "media/FfmpegPluginTable.h"
#include "platform/CurlPluginTable.h"
#include "platform/Plugin.h"

namespace {

// The loader against the build's own plugins (built with every test): a
// plugin is found where the tools find it, and a missing or mismatched one
// is refused with a reason that names it, never handed out.
TEST(PluginTest, FindsTheBuildsPluginsAndRefusesMissingOrMismatchedOnes)
{
    struct Case {
        const char* name;
        const char* file;
        uint32_t version;
        uint32_t size;
        const char* errorHolds;  // null: loads
    };
    const Case cases[] = {
        {"the network plugin", platform::kCurlPluginFile, platform::kCurlPluginVersion,
         sizeof(platform::CurlPluginTable), nullptr},
        {"the FFmpeg plugin", media::kFfmpegPluginFile, media::kFfmpegPluginVersion, sizeof(media::FfmpegPluginTable),
         nullptr},
        {"a plugin that is not there", "tempvox-absent.so", 1, 64, "the plugin tempvox-absent.so is not installed (looked in"},
        {"a table of a later layout", media::kFfmpegPluginFile, media::kFfmpegPluginVersion + 1,
         sizeof(media::FfmpegPluginTable), "belongs to another build"},
        {"a table of another size", platform::kCurlPluginFile, platform::kCurlPluginVersion,
         sizeof(platform::CurlPluginTable) + 8, "belongs to another build"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string error;
        const platform::PluginHeader* header = platform::LoadPlugin(c.file, c.version, c.size, error);
        if (c.errorHolds == nullptr) {
            ASSERT_NE(header, nullptr) << error;
            EXPECT_EQ(header->version, c.version);
            EXPECT_EQ(header->size, c.size);
            EXPECT_TRUE(error.empty());
            // Asked again, the same table without a second load.
            std::string again;
            EXPECT_EQ(platform::LoadPlugin(c.file, c.version, c.size, again), header);
        } else {
            EXPECT_EQ(header, nullptr);
            EXPECT_NE(error.find(c.errorHolds), std::string::npos) << error;
        }
    }
}

// A table that was refused for its layout does not spoil the right request.
TEST(PluginTest, ARefusedLayoutLeavesTheRightOneLoadable)
{
    std::string error;
    EXPECT_EQ(platform::LoadPlugin(platform::kCurlPluginFile, platform::kCurlPluginVersion + 7,
                                   sizeof(platform::CurlPluginTable), error),
              nullptr);
    const auto* table = platform::LoadPluginTable<platform::CurlPluginTable>(platform::kCurlPluginFile,
                                                                             platform::kCurlPluginVersion, error);
    ASSERT_NE(table, nullptr) << error;
    EXPECT_NE(table->transfer, nullptr);
}

}  // namespace
