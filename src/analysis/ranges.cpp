#include "analysis/ranges.h"

#include <cmath>
#include <iterator>
#include <vector>

#include "analysis/strategy_read.h"

RangeVector root_range(int player) {
    if (engine) return engine->range[player];
    if (player_range[player]) return *player_range[player];
    return RangeVector{};
}

RangeVector range_at(int player, const NodeRef& ref) {
    RangeVector range = root_range(player);
    if (!ref.node) return range;
    // The schematic nodes of the path, from the root down.
    std::vector<const SchematicNode*> path;
    for (const SchematicNode* node = ref.node; node; node = node->parent) path.push_back(node);
    for (size_t i = path.size(); i-- > 1;) {
        const SchematicNode& node = *path[i];
        const SchematicNode* taken = path[i - 1];
        if (node.player != player) continue;
        int action = 0;
        for (auto child = node.children.begin(); child != node.children.end(); ++child, ++action)
            if (child->second.get() == taken) break;
        // A card is known from the first node of its street on; the path can
        // name it there and nowhere else.
        const int street = game_street(node);
        const Card turn = street >= turn_street ? ref.turn : -1;
        const Card river = street >= river_street ? ref.river : -1;
        const RangeVector strategy = get_strategy(node.node_index, action, turn, river);
        for (int slot = 0; slot < combo_count; ++slot) range[slot] *= strategy[slot];
    }
    return range;
}

RangeVector range_at(int player, const std::string& path) {
    if (path.empty()) return root_range(player);
    return range_at(player, parse_path(path));
}

double range_mass_ratio(int player, const std::string& path) {
    const RangeVector reached = range_at(player, path);
    const RangeVector root = root_range(player);
    double reached_sum = 0, root_sum = 0;
    for (int slot = 0; slot < combo_count; ++slot) {
        if (std::isnan(reached[slot])) continue;
        reached_sum += reached[slot];
        root_sum += root[slot];
    }
    // No hand of the range lives on the path's board: the player is never here.
    return root_sum > 0 ? reached_sum / root_sum : 0.0;
}
