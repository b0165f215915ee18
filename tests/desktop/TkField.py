#!/usr/bin/env python3
"""A Tk entry for the desktop tests: Return writes the entry's text to RESULT_FILE and quits.

    TkField.py RESULT_FILE TITLE
"""
import sys
import tkinter

result_path, title = sys.argv[1], sys.argv[2]
root = tkinter.Tk()
root.title(title)
entry = tkinter.Entry(root, width=60)
entry.pack(padx=8, pady=8)
entry.focus_set()


def done(_event):
    with open(result_path + ".part", "w", encoding="utf-8") as out:
        out.write(entry.get())
    import os
    os.replace(result_path + ".part", result_path)
    root.destroy()


entry.bind("<Return>", done)
root.mainloop()
