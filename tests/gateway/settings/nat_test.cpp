#include "platform/nat.h"
#include "platform/nvram.h"

#include "gateway/settings/own_store.h"

class Nat : public OwnStore {};

TEST_F(Nat, TheWordStartsAtZeroAndIsSharedAsASetting) {
    inProcess([] {
        std::uint32_t word = 7;
        EXPECT_EQ(agApi_feature_get(&word), 0);
        EXPECT_EQ(word, 0u);
        EXPECT_EQ(agApi_feature_set(0xfffffff8u), 0);
        EXPECT_EQ(agApi_feature_get(&word), 0);
        EXPECT_EQ(word, 0xfffffff8u);
        EXPECT_STREQ(kelpNvramConfig_get("agApi_feature"), "0xfffffff8");

        for (const char *wrong : {" 1", "x", "1x", "0x100000000"}) {
            kelpNvramConfig_set("agApi_feature", wrong);
            EXPECT_EQ(agApi_feature_get(&word), -1) << wrong;
        }
        EXPECT_EQ(word, 0xfffffff8u);
    });
    setenv("NVRAM_DIR", "/proc/none", 1);
    inProcess([] {
        std::uint32_t word = 0;
        EXPECT_EQ(agApi_feature_get(&word), -1);
    });
}
