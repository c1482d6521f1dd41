#pragma once
// The agent's main thread: start-up once, then passes of the main loop for ever.
//
//   agent_start_up          restore the saved documents, start the timer thread
//   agent_main_loop_pass    serve the trigger flags in their fixed order, then take at
//                           most one notification from the player
//   agent_run               both, never returns

// 1 when a USB stick update arrived without media on the stick.
extern int playlist_started;

void agent_start_up(void);
void agent_main_loop_pass(void);
[[noreturn]] void agent_run(void);
