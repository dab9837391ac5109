# Derived in README.md; composed into expected.json by ../compose.py.
HOST = "localhost"
ITEMS = []
