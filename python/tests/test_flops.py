"""Flop sets: the distinct flops and their weights against counts made another way, names, textures, subsets."""

import itertools
import random
from collections import Counter

import pytest

from tavrek.cards import card_text, parse_cards
from tavrek.flops import FLOP_COUNT, MAX_SUBSET, all_flops, canonical, orbit_size, stratified_subset, texture

PERMUTATIONS = list(itertools.permutations(range(4)))


def renamed(cards, perm):
    return frozenset((c % 13) + 13 * perm[c // 13] for c in cards)


def test_all_flops_against_an_independent_count():
    flops = all_flops()
    assert len(flops) == 1755 and sum(b.weight for b in flops) == FLOP_COUNT == 22100
    # Burnside: the number of classes is the mean over the 24 renamings of the flops each leaves alone.
    every = [frozenset(f) for f in itertools.combinations(range(52), 3)]
    fixed = sum(1 for p in PERMUTATIONS for f in every if renamed(f, p) == f)
    assert fixed == 1755 * 24
    # Each flop's class, named by its least member as a sorted tuple: class sizes are the weights.
    classes = Counter(min(tuple(sorted(renamed(f, p))) for p in PERMUTATIONS) for f in every)
    mine = {min(tuple(sorted(renamed(b.cards, p))) for p in PERMUTATIONS): b.weight for b in flops}
    assert mine == dict(classes)
    # By hand: 286 rank sets of three make 1 monotone (4 flops), 1 rainbow (24), 3 two-tone (12 each);
    # 156 paired rank choices make 2 classes of 12; 13 trips make 1 class of 4.
    assert Counter(b.weight for b in flops) == {4: 286 + 13, 24: 286, 12: 3 * 286 + 2 * 156}


@pytest.mark.parametrize("text, name", [
    ("2c 7d Kh", "Ks 7h 2d"), ("Kd 2h 7d", "Ks 7s 2h"), ("2c 7c 7h", "7s 7h 2s"), ("7d 7c 7h", "7s 7h 7d"),
    ("Td 9d 4c 4d", "Ts 9s 4s 4h"),
])
def test_canonical_names(text, name):
    cards = parse_cards(text)
    assert " ".join(card_text(c) for c in canonical(cards)) == name


def test_canonical_is_the_same_for_every_renaming():
    rng = random.Random(7)
    for size in (3, 4, 5):
        for _ in range(300):
            cards = rng.sample(range(52), size)
            perm = rng.choice(PERMUTATIONS)
            other = [c % 13 + 13 * perm[c // 13] for c in cards]
            rng.shuffle(other)
            assert canonical(other) == canonical(cards)
            assert orbit_size(cards) == len({renamed(cards, p) for p in PERMUTATIONS})


@pytest.mark.parametrize("text, high, pairing, suits, straights", [
    ("9s 8h 7d", "9", "unpaired", "rainbow", 3),
    ("As Ks Qs", "A", "unpaired", "monotone", 1),
    ("As 2h 3d", "A", "unpaired", "rainbow", 1),        # the ace plays low
    ("7s 7h 2s", "7", "paired", "two-tone", 0),
    ("7s 7h 7d", "7", "trips", "rainbow", 0),
    ("Js Th 9s 9h", "J", "paired", "two-tone", 3),
    ("Js Jh 9s 9h 2s", "J", "two pair", "three of a suit", 0),
    ("Js Jh Jd 9h 9s", "J", "full house", "two-tone", 0),
])
def test_texture(text, high, pairing, suits, straights):
    assert texture(parse_cards(text)) == {"high_card": high, "pairing": pairing, "suits": suits,
                                          "straights": straights}


def test_stratified_subset():
    picks = stratified_subset(25)
    assert len({b.cards for b in picks}) == 25 and sum(b.weight for b in picks) == FLOP_COUNT
    assert stratified_subset(25) == picks                          # the same on every run
    every = {b.cards: b for b in all_flops()}
    assert all(b.cards in every and b.weight >= every[b.cards].weight for b in picks)
    # Flops of one texture lie together in the sort order, so each texture gets its share of the picks,
    # give or take one: by pairing, by pairing and suits, and by those and the high card.
    for depth in (1, 2, 3):
        def key(cards):
            t = texture(cards)
            return (t["pairing"], t["suits"], t["high_card"])[:depth]
        share = Counter()
        for b in all_flops():
            share[key(b.cards)] += b.weight
        picked = Counter(key(b.cards) for b in picks)
        for value, weight in share.items():
            assert abs(picked[value] - 25 * weight / FLOP_COUNT) < 1, value
    largest = stratified_subset(MAX_SUBSET)
    assert len({b.cards for b in largest}) == MAX_SUBSET and sum(b.weight for b in largest) == FLOP_COUNT
    for size in (0, MAX_SUBSET + 1):
        with pytest.raises(ValueError, match="1 to 920"):
            stratified_subset(size)
