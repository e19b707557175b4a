#include "tree/engine.h"

#include "shell/protocol/settings.h"
#include "tree/boards.h"

std::unique_ptr<SubgameEngine> engine;
int32_t first_street = 1;
bool skip_values = false;
FifoMutex engine_lock;

SubgameEngine::SubgameEngine() = default;

SubgameEngine::~SubgameEngine() {
    // The nodes' stores read the shared layouts as they go, so the nodes go
    // before the layouts.
    root_board.reset();
    for (auto& vectors : {&root_weights, &root_reach})
        for (auto& vector : *vectors) std::vector<float>().swap(vector);
    nodes.clear();
    layouts.clear();
}

void destroy_engine() {
    engine.reset();
    tree_ready = false;
}

bool open_all_storage(SubgameEngine& e) {
    if (e.storage_open) return true;
    for (TreeNode& node : e.nodes) {
        if (!node.regrets || node.opened) continue;
        if (!node.regrets->open()) return false;
        if (node.strategy_sums && !node.strategy_sums->open()) return false;
        node.opened = 1;
    }
    e.storage_open = 1;
    return true;
}
