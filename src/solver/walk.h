// The tree walk: vector-form counterfactual regret minimisation.
//
// One walk_player is one full-width pass of the game tree for one player, the
// traverser. Every frame carries the opponent's reach for all hands of the
// current list at once and brings back the traverser's value for each hand.
// Chance nodes don't exist in the tree: a node of a later street is met with
// its card still undealt, and the walk deals the cards there.
//
// A walk has three phases. The descent walks the top of the tree and queues a
// task for each (chance node, card) below it; TraverseSubgames runs the tasks
// in parallel; the ascent walks the top again and takes the tasks' results
// where the descent left zeros. Nodes above the first chance node are updated
// only in the ascent, nodes below only by the tasks.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "shell/protocol/hand_vector.h"
#include "tree/engine.h"

enum WalkMode : int32_t { mode_evaluate = 0, mode_train = 1, mode_capture = 2 };
enum WalkPhase : int32_t { phase_descent = 0, phase_subgames = 1, phase_ascent = 2 };

// Card deals per chance node: the cards left for a pair of hands on the turn
// and on the river.
constexpr float turn_chance_factor = 0.022222223f;   // 1/45
constexpr float river_chance_factor = 0.022727273f;  // 1/44

struct WalkFrame {
    SubgameEngine* engine = nullptr;
    TreeNode* node = nullptr;
    int32_t turn = -1;   // index of the dealt turn card in the tree of boards, -1 when none
    int32_t river = -1;  // index of the dealt river card under that turn, -1 when none
    HandVector reach;      // the opponent's reach, one entry per hand of the list
    HandVector value;      // out: the traverser's value per hand
    HandVector own_reach;  // the traverser's own reach; only a capture walk carries it
    HandVector best;       // out when evaluating: the best response value per hand
};

// A capture walk asks for the values at one node and its cards. `capture` is
// called with the frame at that node after the descent, possibly on a worker
// thread, with result_mutex not held; it runs once per visit.
struct CaptureRequest {
    const TreeNode* node = nullptr;
    int32_t turn = -1;   // canonical board indices, -1 when not named
    int32_t river = -1;
    // Which images of the stored cards the real cards are (see RunoutImages):
    // the one a capture keeps when the images are walked apart.
    int32_t turn_image = 0;
    int32_t river_image = 0;
    bool averaging = false;
    void (*capture)(CaptureRequest& request, const WalkFrame& frame) = nullptr;
    void* context = nullptr;
};

struct WalkResult {
    double ev = 0;    // the traverser's value, a mean over pairs of hands
    double best = 0;  // its best response value (evaluating walks)
};

// Guards the chance positions' shared accumulators while tasks add to them.
extern std::mutex result_mutex;

// One walk for `player`, under engine_lock. Train updates regrets and
// strategy sums; Evaluate returns the value of the fixed strategy and the
// best response value beside it.
WalkResult walk_player(SubgameEngine& engine, int player, WalkMode mode);
// The same three phases for a capture request, under engine_lock, which the
// caller must not hold.
WalkResult walk_capture(SubgameEngine& engine, int player, CaptureRequest& request);
// Both without taking the lock, for callers that hold it already.
WalkResult walk_player_locked(SubgameEngine& engine, int player, WalkMode mode, CaptureRequest* request);

// The recursion. The caller sets engine, node, turn, river, reach and
// own_reach, and owns value and best afterwards.
void walk(WalkFrame& frame);

// Runs the queued chance tasks, `threads` at a time, largest subtrees first.
void TraverseSubgames(SubgameEngine& engine);
// Frees the tasks of the last walk and empties the queue.
void clear_subgame_tasks();

