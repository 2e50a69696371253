"""Labs: a whole router on one machine, each in namespaces of its own.

Two sides share this package. Outside the namespaces run the verbs of the command (cli, launch, registry): they
make and remove a lab's folder, start its first process and talk to it by signals and by the files in that folder.
Inside runs the lab's first process (first_process, filesystem, supervisor, syslog_reader): it builds the private
folders, starts the programs in order and keeps status.json up to date until it ends; with it ends all that runs in
the lab. config and errors serve both sides. Standard library only.
"""
