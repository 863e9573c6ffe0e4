"""What can go wrong."""

from __future__ import annotations


class InputError(ValueError):
    """The input cannot be analysed; the text says which part of it and which value.

    fault   what is wrong: "samples" (no one-dimensional array of numbers), "tooFewSamples", "notFinite", "spacing",
            "start", "option" or, of a fit, "order"
    index   the sample that it is about, from 0
    """

    def __init__(self, text: str, fault: str, index: int = 0) -> None:
        super().__init__(text, fault, index)
        self.fault = fault
        self.index = index

    def __str__(self) -> str:
        return str(self.args[0])


class Stopped(RuntimeError):
    """The progress function returned False."""


class FitError(RuntimeError):
    """A fit met a limit of iterations; the text is the library's."""
