"""The demonstration's parts: what other programs see (peers, checks) and the page (all others)."""
