"""Cards, the 1326 two-card hands in the engine's wire order, and the 169 hand classes.

A card is 0..51, suit * 13 + rank (rank 0 the two, 12 the ace; suits c d h s).
Every list of 1326 values that the engine reads or prints is in "hand order":
number the cards K = rank * 4 + suit, put the greater K first, and the hand's
place is K1 * (K1 - 1) / 2 + K2.  The first hands are 2d2c 2h2c 2h2d ...
"""

from __future__ import annotations

import numpy as np

RANKS = "23456789TJQKA"
SUITS = "cdhs"
COMBO_COUNT = 1326
CLASS_COUNT = 169


class CardError(ValueError):
    """Text that is not a card, or cards that clash."""


def card(rank: int, suit: int) -> int:
    return suit * 13 + rank


def card_rank(c: int) -> int:
    return c % 13


def card_suit(c: int) -> int:
    return c // 13


def card_text(c: int) -> str:
    return RANKS[card_rank(c)] + SUITS[card_suit(c)]


def parse_card(text: str) -> int:
    """One card such as "Ah" (either case); raises CardError otherwise."""
    if len(text) != 2:
        raise CardError(f"'{text}' is not a card (a rank of {RANKS} and a suit of {SUITS}, e.g. Ah)")
    rank = RANKS.find(text[0].upper())
    suit = SUITS.find(text[1].lower())
    if rank < 0 or suit < 0:
        raise CardError(f"'{text}' is not a card (a rank of {RANKS} and a suit of {SUITS}, e.g. Ah)")
    return card(rank, suit)


def parse_cards(text: str) -> list[int]:
    """Cards written together or apart: "Kh7d2c", "Kh 7d 2c", "Kh,7d,2c"."""
    compact = "".join(text.replace(",", " ").split())
    if len(compact) % 2:
        raise CardError(f"'{text.strip()}' is not a list of cards")
    cards = [parse_card(compact[i:i + 2]) for i in range(0, len(compact), 2)]
    seen = set()
    for c in cards:
        if c in seen:
            raise CardError(f"{card_text(c)} appears twice in '{text.strip()}'")
        seen.add(c)
    return cards


def _order_key(c: int) -> int:
    return card_rank(c) * 4 + card_suit(c)


def _build_tables():
    cards = np.zeros((COMBO_COUNT, 2), dtype=np.int16)
    texts = []
    for k1 in range(52):
        for k2 in range(k1):
            index = k1 * (k1 - 1) // 2 + k2
            hi = card(k1 // 4, k1 % 4)
            lo = card(k2 // 4, k2 % 4)
            cards[index] = (hi, lo)
            texts.append((index, card_text(hi) + card_text(lo)))
    texts.sort()
    return cards, [t for _, t in texts]


#: COMBO_CARDS[i] = (greater card, lesser card) of hand i, by the K order.
COMBO_CARDS, COMBO_TEXT = _build_tables()
COMBO_CARDS.setflags(write=False)
_COMBO_BY_PAIR = {}
for _i, (_a, _b) in enumerate(COMBO_CARDS.tolist()):
    _COMBO_BY_PAIR[(_a, _b)] = _i
    _COMBO_BY_PAIR[(_b, _a)] = _i


def combo_index(a: int, b: int) -> int:
    """Hand-order index of the two cards, in either order."""
    if a == b:
        raise CardError(f"{card_text(a)}{card_text(b)} uses one card twice")
    return _COMBO_BY_PAIR[(a, b)]


def parse_combo(text: str) -> int:
    cards = parse_cards(text)
    if len(cards) != 2:
        raise CardError(f"'{text}' is not a two-card hand")
    return combo_index(*cards)


# Hand classes, drawn as the usual 13 x 13 grid: row and column 0 are the ace,
# pairs on the diagonal, suited hands above it (the row is the higher rank),
# offsuit hands below it (the column is the higher rank).
GRID_RANKS = RANKS[::-1]


def class_name(row: int, col: int) -> str:
    hi, lo = GRID_RANKS[min(row, col)], GRID_RANKS[max(row, col)]
    if row == col:
        return hi + lo
    return hi + lo + ("s" if row < col else "o")


def _build_classes():
    combo_class = np.zeros(COMBO_COUNT, dtype=np.int16)
    for i, (a, b) in enumerate(COMBO_CARDS.tolist()):
        ra, rb = 12 - card_rank(a), 12 - card_rank(b)  # grid positions, ace 0
        hi, lo = min(ra, rb), max(ra, rb)
        if ra == rb:
            row, col = hi, hi
        elif card_suit(a) == card_suit(b):
            row, col = hi, lo
        else:
            row, col = lo, hi
        combo_class[i] = row * 13 + col
    members = [np.flatnonzero(combo_class == c) for c in range(CLASS_COUNT)]
    return combo_class, members


#: COMBO_CLASS[i] = grid cell row * 13 + col of hand i; CLASS_COMBOS[cell] = its hands.
COMBO_CLASS, CLASS_COMBOS = _build_classes()
CLASS_NAMES = [class_name(c // 13, c % 13) for c in range(CLASS_COUNT)]
CLASS_BY_NAME = {name: i for i, name in enumerate(CLASS_NAMES)}


def board_mask(board: list[int]) -> np.ndarray:
    """True for every hand that shares a card with the board."""
    dead = np.zeros(52, dtype=bool)
    dead[list(board)] = True
    return dead[COMBO_CARDS[:, 0]] | dead[COMBO_CARDS[:, 1]]
