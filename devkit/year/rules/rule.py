"""A rule of the oracle. It sees every record once, in order of time, and the evidence of each hour."""


class Rule:
    name = ""

    def __init__(self, history):
        self.history = history
        self.broken = []  # (time, text)

    def breaks(self, time, text):
        self.broken.append((time, text))

    def feed(self, record):
        """One record."""

    def hour(self, now, evidence):
        """The end of an hour, after its records."""
