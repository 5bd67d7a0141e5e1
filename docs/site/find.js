// Shows the pages and names in which all words stand that are typed; `entries` is made with the site.
const field = document.getElementById("words");
const list = document.getElementById("found");

field.addEventListener("input", () => {
    const words = field.value.toLowerCase().split(/\s+/).filter(Boolean);
    const found = words.length === 0 ? [] : entries.filter(
        ([text]) => words.every(word => text.toLowerCase().includes(word)));
    list.replaceChildren(...found.slice(0, 60).map(([text, address]) => {
        const link = document.createElement("a");
        link.href = address;
        link.textContent = text;
        const item = document.createElement("li");
        item.append(link);
        return item;
    }));
});
