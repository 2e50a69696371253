"""What can go wrong, and the exit status that tells it."""

USAGE = 2  # the command line or a configuration file is wrong
NO_SUCH_LAB = 3
NAME_IN_USE = 4
FAILED = 5  # the lab could not be made, or a program did not become ready
PROGRAM_ENDED = 1  # status only: the lab stands, but a program of it has ended
WRAPPER_FAILED = 125  # enter, and start with a command: any of the above, since the command's own status counts


class LabError(Exception):
    """A failure that the user is told in one message. `code` is one of the exit statuses above."""

    def __init__(self, message, code=FAILED):
        super().__init__(message)
        self.code = code
