"""The page of a router, served for the virtual board."""
