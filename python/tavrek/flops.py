"""Sets of boards for a batch: every flop that suit isomorphism makes distinct, a weighted subset, or a list.

Two boards are the same problem when a renaming of the suits turns one into the other (and the ranges
give every suit of a hand class one weight). Of the 22,100 flops, 1,755 are distinct that way; each
stands for the flops its renamings reach, its weight (4, 12, 24 or 36).

A board is written with its cards by rank, highest first, and the suits named in the order
spades, hearts, diamonds, clubs as they first appear: "Ks 7h 2d", "Ks 7s 2h", "7s 7h 2s".

The weighted subset of n flops is a systematic sample along the flops sorted by texture
(`texture_order`): the 22,100 flops laid end to end in that order are cut into n slices of equal
weight; each flop belongs to the slice holding the middle of its own stretch; each slice is
represented by its flop nearest the slice's middle, which weighs the whole slice. So every texture
gets picks in proportion to its share of all flops, the picks' weights add up to 22,100, and a
subset of one size is the same on every run. Flops of one texture lie together in that order, so
the flops of one pairing, of one pairing and suitedness, or of those and one high card get their
share of the n picks within one pick; connectedness and the other ranks are spread as they fall.
"""

from __future__ import annotations

import itertools
from dataclasses import dataclass
from functools import lru_cache

from .cards import RANKS, card, card_rank, card_suit, card_text

FLOP_COUNT = 22100                       # 52 choose 3
SUIT_PREFERENCE = (3, 2, 1, 0)           # suits s h d c, as the canonical names use them
_PREFERENCE_RANK = {suit: i for i, suit in enumerate(SUIT_PREFERENCE)}
_PERMUTATIONS = list(itertools.permutations(range(4)))
# Five-card windows of a straight, as rank sets; the ace also plays low.
_WINDOWS = [frozenset([12, 0, 1, 2, 3])] + [frozenset(range(low, low + 5)) for low in range(9)]
PAIRING_ORDER = ("unpaired", "paired", "two pair", "trips", "full house", "quads")
SUIT_WORDS = {1: "rainbow", 2: "two-tone", 3: "monotone", 4: "four of a suit", 5: "five of a suit"}
SUIT_ORDER = ("rainbow", "two-tone", "monotone", "three of a suit", "four of a suit", "five of a suit")
MAX_SUBSET = FLOP_COUNT // 24            # larger subsets could need one flop twice: solve them all


@dataclass(frozen=True)
class Board:
    cards: tuple[int, ...]
    weight: float

    @property
    def text(self) -> str:
        return " ".join(card_text(c) for c in self.cards)

    @property
    def name(self) -> str:
        """The board for file names: "Ks7h2d"."""
        return "".join(card_text(c) for c in self.cards)


def _relabel(cards, perm) -> tuple[int, ...]:
    return tuple(card(card_rank(c), perm[card_suit(c)]) for c in cards)


def _order_key(cards) -> tuple:
    """Highest rank first; among equal ranks, spades, hearts, diamonds, clubs."""
    return tuple(sorted((-card_rank(c), _PREFERENCE_RANK[card_suit(c)]) for c in cards))


def canonical(cards) -> tuple[int, ...]:
    """The board's representative under suit renaming, its cards in writing order.

    It is the renaming whose writing-order key is least. In that key the suits appear in preference
    order along the cards, so it is found by naming the suits as they first appear, over every
    order of the cards of equal rank (at most 3! orders on a flop) instead of all 24 renamings."""
    by_rank = sorted(cards, key=card_rank, reverse=True)
    groups = [list(g) for _, g in itertools.groupby(by_rank, key=card_rank)]
    best = None
    for order in itertools.product(*(itertools.permutations(g) for g in groups)):
        names: dict[int, int] = {}
        key = tuple(sorted((-card_rank(c), names.setdefault(card_suit(c), len(names)))
                           for group in order for c in group))
        if best is None or key < best:
            best = key
    return tuple(card(-rank, SUIT_PREFERENCE[pref]) for rank, pref in best)


def orbit_size(cards) -> int:
    """How many boards of this size are this board with the suits renamed (itself included)."""
    return len({frozenset(_relabel(cards, p)) for p in _PERMUTATIONS})


@lru_cache(maxsize=1)
def all_flops() -> tuple[Board, ...]:
    """Every flop that suit renaming makes distinct, with its weight, in texture order."""
    counts: dict[tuple[int, ...], int] = {}
    for flop in itertools.combinations(range(52), 3):
        key = canonical(flop)
        counts[key] = counts.get(key, 0) + 1
    return tuple(sorted((Board(k, w) for k, w in counts.items()), key=lambda b: texture_order(b.cards)))


def texture(cards) -> dict:
    """Texture features of a board, for reports and for sorting.

    high_card: the highest rank; pairing: unpaired, paired, two pair, trips, full house, quads;
    suits: rainbow, two-tone, monotone (flops) by the most cards of one suit; straights: how many
    five-rank straights hold three of the board's ranks or more (0 to 3 on a flop: 9 8 7 has 3,
    A K Q has 1, K 8 3 none), a measure of how connected the board is."""
    ranks = [card_rank(c) for c in cards]
    counts = sorted((ranks.count(r) for r in set(ranks)), reverse=True)
    if counts[0] == 4:
        pairing = "quads"
    elif counts[0] == 3:
        pairing = "full house" if len(counts) > 1 and counts[1] >= 2 else "trips"
    else:
        pairing = {0: "unpaired", 1: "paired"}.get(counts.count(2), "two pair")
    suited = max(sum(1 for c in cards if card_suit(c) == s) for s in range(4))
    suits = SUIT_WORDS[suited] if suited != 3 or len(cards) == 3 else "three of a suit"
    distinct = set(ranks)
    straights = sum(1 for w in _WINDOWS if len(w & distinct) >= 3)
    return {"high_card": RANKS[max(ranks)], "pairing": pairing, "suits": suits, "straights": straights}


def texture_order(cards) -> tuple:
    """Sort key: pairing, then suitedness, high card (aces first), connectedness, the other ranks."""
    t = texture(cards)
    ranks = sorted((card_rank(c) for c in cards), reverse=True)
    suited = max(sum(1 for c in cards if card_suit(c) == s) for s in range(4))
    return (PAIRING_ORDER.index(t["pairing"]), suited, -ranks[0], -t["straights"], [-r for r in ranks],
            _order_key(cards))


def stratified_subset(size: int) -> list[Board]:
    """`size` flops that stand for all 22,100 by texture, weights adding up to 22,100 (see the module)."""
    if not 1 <= size <= MAX_SUBSET:
        raise ValueError(f"a subset has 1 to {MAX_SUBSET} flops (more could need a flop twice: take them all)")
    flops = all_flops()
    slice_weight = FLOP_COUNT / size
    members: list[list[tuple[float, Board]]] = [[] for _ in range(size)]
    start = 0.0
    for board in flops:
        middle = start + board.weight / 2
        members[min(size - 1, int(middle // slice_weight))].append((middle, board))
        start += board.weight
    picks = []
    for i, group in enumerate(members):
        centre = (i + 0.5) * slice_weight
        _, chosen = min(group, key=lambda item: (abs(item[0] - centre), item[0]))
        picks.append(Board(chosen.cards, sum(b.weight for _, b in group)))
    return picks
