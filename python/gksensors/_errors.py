"""The exceptions of this package. All texts are those that ``gk`` and the platform write."""

from typing import Optional, Sequence


class Error(Exception):
    """What was asked of ``gk`` could not be done. The base of the errors of this package."""


class InputError(Error, ValueError):
    """A file, a key or an option is malformed.

    Attributes
    ----------
    file : str or None
        The file that is malformed, where it is one.
    line : int or None
        The line in it, from 1.
    reason : str
        What is wrong with it.
    """

    def __init__(self, reason: str, file: Optional[str] = None, line: Optional[int] = None) -> None:
        place = "" if file is None else f"{file}: " if line is None else f"{file}:{line}: "
        super().__init__(place + reason)
        self.reason = reason
        self.file = file
        self.line = line

    def __reduce__(self) -> "tuple[type[InputError], tuple[str, Optional[str], Optional[int]]]":
        return InputError, (self.reason, self.file, self.line)


class CallError(Error):
    """A call was refused, or the method that was called has raised an error.

    Attributes
    ----------
    module, method, description : str
        The members of the platform's error. Empty for a call that did not get that far.
    code : int
        The code of JSON-RPC: -32000 for an error of the platform.
    nearest : tuple of str
        Names like one that does not exist.
    """

    def __init__(
        self,
        message: str,
        code: int = -32000,
        module: str = "",
        method: str = "",
        description: str = "",
        nearest: Sequence[str] = (),
    ) -> None:
        super().__init__(message)
        self.code = code
        self.module = module
        self.method = method
        self.description = description
        self.nearest = tuple(nearest)


class ProgramError(Error):
    """The program ``gk`` has failed, or has ended before it should have.

    Attributes
    ----------
    returncode : int or None
        Its exit code; the negative number of the signal that has ended it.
    """

    def __init__(self, message: str, returncode: Optional[int] = None) -> None:
        super().__init__(message)
        self.returncode = returncode


class ExpectationFailed(AssertionError):
    """A run did not do what was expected of it. The text says what came nearest."""
