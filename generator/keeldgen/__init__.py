"""Generator of everything that follows from the interface definition."""
