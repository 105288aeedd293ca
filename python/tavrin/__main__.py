"""Says where the command is."""
import shutil
import sys

command = shutil.which("tavrin-separate")
print("tavrin is a library here: import tavrin, help(tavrin).")
if command:
    print(f"The command is {command}; {command} --help shows what it does.")
else:
    print("The command is tavrin-separate, of the package tavrin; it is not among the programs of this machine.")
sys.exit(0 if command else 1)
