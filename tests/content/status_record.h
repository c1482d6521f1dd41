#pragma once
// What the status tests share: a filled status record, and the document built from it.
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "content/status.h"
#include "core/text.h"

inline DRAVIK_PLAYER_STATUS sample()
{
    DRAVIK_PLAYER_STATUS s{};
    copy_text(s.playerID, "0011AABBCCDD");
    s.isPlaying = 1;
    copy_text(s.tstamp, "2026-07-01T12:00:00");
    s.scheduled_pl_active = 1;
    copy_text(s.active_content_name, "Lobby");
    copy_text(s.active_playlist_name, "Morning");
    s.download_state = PS_DL_STATE_COMPLETE;
    s.download_enabled = 1;
    copy_text(s.playing_video, "a.mpg");
    s.totalMB = 1000;
    s.freeMB = 250;
    return s;
}

// The document for `s` built into a buffer of `size` bytes (the 2048 of a post).
inline std::string build(DRAVIK_PLAYER_STATUS& s, int size = 2048)
{
    std::vector<char> buf(static_cast<std::size_t>(size));  // ASan sees any write past it
    int n = da_CreatePlayerXMLStatus(buf.data(), size, &s);
    EXPECT_EQ(n, static_cast<int>(std::strlen(buf.data())));
    return std::string(buf.data(), static_cast<std::size_t>(n));
}
