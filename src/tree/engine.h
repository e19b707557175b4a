// The built game: one process-wide engine that owns the node array, the tree
// of boards and every store, from build_tree (or load_tree) to free_tree.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "model/lines.h"
#include "shell/protocol/game_setup.h"
#include "storage/storage.h"
#include "tree/capture_cache.h"
#include "tree/subgame_cache.h"

struct RootBoard;
struct CaptureRequest;

enum NodeKind : int32_t { decision_node = 0, showdown_node = 1, fold_node = 2 };
enum Street : int32_t { flop_street = 1, turn_street = 2, river_street = 3 };

// Engine flag bits.
constexpr uint32_t incomplete_tree_flag = 1;
constexpr uint32_t isomorphism_on_flag = 2;
constexpr uint32_t new_tree_flag = 4;

// One betting position. A turn node stands for every turn card at once and a
// river node for every (turn, river) pair: the cards live in the tree of
// boards, and the per-card numbers in rows of the node's stores.
struct TreeNode {
    int32_t kind = decision_node;
    int32_t parent = -1;
    int32_t player = 0;  // at a terminal: the player of the last action
    int32_t street = flop_street;  // a showdown is always on the river
    double value = 0;    // a terminal's amount: half the pot plus the line's amount
    std::vector<int32_t> children;  // action order: fold, check or call, bets by size
    TreeNode* parent_node = nullptr;
    std::unique_ptr<Storage> regrets;
    std::unique_ptr<Storage> strategy_sums;
    float ev_boost = 0;
    uint8_t opened = 0;
    uint8_t constructed = 0;
    int32_t subgame_cost[2] = {-1, -1};
    std::unique_ptr<std::mutex[]> card_locks;  // per turn group, at the first node of the turn
    std::unique_ptr<SubgameCache[]> cache;     // at first decisions of the turn (1) and river (49)
};

constexpr int turn_group_slots = 49;

struct SubgameEngine {
    SubgameEngine();
    ~SubgameEngine();
    SubgameEngine(const SubgameEngine&) = delete;
    SubgameEngine& operator=(const SubgameEngine&) = delete;

    std::vector<TreeNode> nodes;  // the root is element 0
    // The client's lines as they stood at the build, each node holding the
    // index of its TreeNode. Paths resolve on these, so that lines edited
    // since can't name a node the tree lacks.
    SchematicTree lines;
    CardMask flop = 0;            // as given; the boards hold it permuted under isomorphism
    CardMask dead = 0;            // flop with the fixed turn and river, as given
    Card fixed_turn = -1;         // the board's own turn and river, -1 when dealt by the tree
    Card fixed_river = -1;
    std::unique_ptr<RootBoard> root_board;
    int32_t root_turn_group = -1;
    int32_t root_river_row = -1;
    std::vector<float> root_weights[2];
    std::vector<float> root_reach[2];
    RangeVector range[2]{};  // the client's ranges, never permuted
    double pot_block[3] = {0, 0, 100};  // set_pot's three numbers at the build
    std::vector<std::unique_ptr<RowLayout>> layouts;  // by action count; element 0 empty
    double max_weight[2] = {1.0, 1.0};
    int32_t average_strategy_mode = 1;
    int64_t street_values[4] = {0, 0, 0, 0};
    int64_t street_bytes[4] = {0, 0, 0, 0};
    double avg_actions = 0;
    int32_t max_actions = 0;
    double largest_value = 0;
    double regret_scale = 1;
    int32_t format_version = 7;
    int32_t regret_compression = 0;
    int32_t strategy_compression = 0;
    uint8_t storage_open = 0;
    uint8_t update_river_average = 1;
    // Atomic: the solver thread clears new_tree_flag after each iteration
    // while queries read the other bits without engine_lock.
    std::atomic<uint32_t> flags{new_tree_flag};
    // A strategy forced, or hands locked one by one, at a node that a chance
    // node follows: a hand and its images under suit isomorphism may play
    // apart from there on, and the walk looks at each dealt card's reaches
    // before its images share one walk. Set under engine_lock.
    bool images_may_differ = false;
    int32_t iterations = 0;
    int32_t forgotten_from = -1;

    // Constants that follow from the stores (see storage_constants).
    double regret_unit = 125.0;
    double weight_exponent = 1.5;
    double weight_cap = 262143.0;
    int32_t max_iterations = 9000;
    int32_t pool_iterations = 0;

    // Walk state, set at the start of each walk; read-only in its parallel part.
    int32_t mode = 0;       // WalkMode
    int32_t phase = 0;      // WalkPhase
    int32_t traverser = 0;  // 0 OOP, 1 IP
    CaptureRequest* capture_request = nullptr;

    // Last computed results; they hold while results_iteration == iterations.
    int32_t results_iteration = -1;
    double mes_oop = 0;
    double ev_oop = 0;
    double mes_ip = 0;
    double ev_ip = 0;
    double exploitable = 0;
    double ev_mean = 0;

    // Values of the expected value queries, for the present iteration only.
    // Touched under engine_lock.
    CaptureCache capture_cache;
};

// The one engine; null until a tree is built.
extern std::unique_ptr<SubgameEngine> engine;
// Street of the tree's root: 1 flop, 2 turn, 3 river.
extern int32_t first_street;
// Set by load_tree when a file carries no value rows.
extern bool skip_values;
// A lock granted in the order it was asked for. The solver thread takes the
// engine's lock again the moment a walk ends; a plain mutex lets it win that
// race over and over, and a command waiting to read the tree could wait for
// seconds. In turn order a command waits for the walk in progress only.
class FifoMutex {
public:
    void lock() {
        std::unique_lock guard(state_);
        const uint64_t ticket = next_ticket_++;
        turn_.wait(guard, [&] { return now_serving_ == ticket; });
    }
    void unlock() {
        {
            std::lock_guard guard(state_);
            ++now_serving_;
        }
        turn_.notify_all();
    }
    // Someone besides the holder has asked for the lock.
    bool has_waiters() {
        std::lock_guard guard(state_);
        return next_ticket_ - now_serving_ > 1;
    }

private:
    std::mutex state_;
    std::condition_variable turn_;
    uint64_t next_ticket_ = 0;
    uint64_t now_serving_ = 0;
};

// Held by every walk and by the commands that read the tree meanwhile.
extern FifoMutex engine_lock;

// Destroys the engine, if any, and marks the tree absent.
void destroy_engine();

// Opens every node's stores that isn't open yet; true when all are. The
// solver does it before its first walk, and a tree file before its values.
bool open_all_storage(SubgameEngine& engine);

// True when the node is the first of its street on its path.
inline bool is_first_of_street(const TreeNode& node) {
    return node.parent_node == nullptr || node.parent_node->street < node.street;
}
