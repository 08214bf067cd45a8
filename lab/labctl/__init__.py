"""The host side of the virtual board: raising it, talking to it, showing it. Standard library only."""
