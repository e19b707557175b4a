#include "solver/forgotten_rows.h"

void solve_forgotten_subgame(SubgameEngine& e, const TreeNode& node, int, int) {
    if (e.forgotten_from < 0 || node.street < e.forgotten_from) return;
}
